// Battery, supply of the module, power button.

#include <array>
#include <atomic>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "dataorvan.h"
#include "portable_bench.h"
#include "support/instrument_files.h"
#include "support/loopback.h"

using namespace board_test;

namespace {

constexpr uint64_t kSecond = 1'000'000;

/** Its waits advance the clock automatically. */
class PortablePower : public PortableTest {
protected:
    PortablePower()
    {
        device->InitHW();
        device->batteryOn = true;
        logs.clear();
        trace();
    }

    sim_board::SelfAdvancing self{board->clock()};
};

TEST_F(PortablePower, TheChargeIsReadFromTheBattery)
{
    battery->set(0x0D, 67);
    uint16_t percentage = 0xffff;
    EXPECT_EQ(device->GetBatteryCharge(percentage), 0);
    EXPECT_EQ(percentage, 67);
    EXPECT_TRUE(expect_trace(trace(), R"(
        i2c 0x0b open
        i2c 0x0b [0x0d] -> 0x0043
    )"));
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(PortablePower, WithoutTheBatteryOptionTheChargeIsZeroAndNothingIsRead)
{
    device->batteryOn = false;
    uint16_t percentage = 0xffff;
    EXPECT_EQ(device->GetBatteryCharge(percentage), 0);
    EXPECT_EQ(percentage, 0);
    EXPECT_TRUE(trace().empty());
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(PortablePower, AChargeThatCannotBeReadIsZeroAndLogged)
{
    const auto fault = insert_fault(board->i2c(), kBattery);
    const std::vector<LogLine> line{{LOG_ERR, "GetBatteryCharge: failed to read battery charge"}};
    uint16_t percentage = 0xffff;
    fault->absent(true);
    EXPECT_EQ(device->GetBatteryCharge(percentage), 0);
    EXPECT_EQ(percentage, 0);
    EXPECT_EQ(logs.lines(), line);
    EXPECT_TRUE(expect_trace(trace(), "i2c 0x0b open -> ENXIO"));

    logs.clear();
    percentage = 0xffff;
    fault->absent(false);
    fault->not_acknowledging(true);
    EXPECT_EQ(device->GetBatteryCharge(percentage), 0);
    EXPECT_EQ(percentage, 0);
    EXPECT_EQ(logs.lines(), line);
}

TEST_F(PortablePower, SwitchingTheModuleChangesNoOtherOutput)
{
    EXPECT_EQ(device->turn_orvanx_on(false), 0);
    EXPECT_EQ(device->turn_orvanx_on(true), 0);
    EXPECT_TRUE(expect_trace(trace(), R"(
        i2c 0x20 open
        i2c 0x20 [0x14] -> 0x80
        i2c 0x20 [0x14] = 0x00
        i2c 0x20 open
        i2c 0x20 [0x14] -> 0x00
        i2c 0x20 [0x14] = 0x80
    )"));
    board->i2c().device(kExpander)->write(std::array<uint8_t, 2>{0x14, 0x7f});
    device->turn_orvanx_on(true);
    EXPECT_EQ(port_a(), 0xff);
    device->turn_orvanx_on(false);
    EXPECT_EQ(port_a(), 0x7f);
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(PortablePower, ASwitchThatFailsIsLogged)
{
    const auto fault = insert_fault(board->i2c(), kExpander);
    fault->not_acknowledging(true);
    EXPECT_EQ(device->turn_orvanx_on(true), -1);
    EXPECT_EQ(device->turn_orvanx_on(false), -1);
    fault->not_acknowledging(false);
    fault->refuse_after(2); // it can be read and not be written
    EXPECT_EQ(device->turn_orvanx_on(false), -1);
    const LogLine off{LOG_ERR, "turn_orvanx_on: failed to turn orvan off"};
    EXPECT_EQ(logs.lines(),
              (std::vector<LogLine>{{LOG_ERR, "turn_orvanx_on: failed to turn orvan on"}, off, off}));
}

TEST_F(PortablePower, WithoutAnExpanderTheSwitchSucceedsAndSwitchesNothing)
{
    insert_fault(board->i2c(), kExpander)->absent(true);
    EXPECT_EQ(device->turn_orvanx_on(false), 0);
    EXPECT_TRUE(expect_trace(trace(), "i2c 0x20 open -> ENXIO"));
    EXPECT_TRUE(logs.lines().empty());
    EXPECT_TRUE(board->module_power());
}

std::atomic<int> g_presses = 0;
void count_press()
{
    ++g_presses;
}

TEST_F(PortablePower, ThePowerButtonCallsItsHandlerWhenPressed)
{
    EXPECT_TRUE(device->SetupPowerButtonIrq(count_press));
    EXPECT_TRUE(expect_trace(trace(), "pin 22 isr falling"));
    board->power_button(true);
    EXPECT_TRUE(board->gpio().wait_for_handlers());
    EXPECT_EQ(g_presses, 1);
    board->power_button(false);
    EXPECT_TRUE(board->gpio().wait_for_handlers());
    EXPECT_EQ(g_presses, 1);
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(PortablePower, APowerButtonWithoutItsInterruptIsLogged)
{
    board->gpio().refuse_isr(true);
    EXPECT_FALSE(device->SetupPowerButtonIrq(count_press));
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{
                                {LOG_USER | LOG_ERR, "SetupPowerButtonIrq: unable to setup ISR on pin 22"}}));
}

TEST_F(PortablePower, AReleasedPowerButtonCausesNoWait)
{
    device->WaitPowerButtonRelease();
    EXPECT_TRUE(expect_trace(trace(), "pin 22 -> 1"));
}

TEST_F(PortablePower, APressedPowerButtonIsPolledEvery50Milliseconds)
{
    board->power_button(true);
    std::thread waiting([&] { device->WaitPowerButtonRelease(); });
    for (int polls = 0; polls < 3; ++polls) {
        EXPECT_TRUE(board->clock().wait_for_sleepers(1));
        board->clock().advance(50'000);
    }
    EXPECT_TRUE(board->clock().wait_for_sleepers(1));
    board->power_button(false);
    board->clock().advance(50'000);
    waiting.join();
    EXPECT_TRUE(expect_trace(trace(), R"(
        pin 22 -> 0
        delay 50000
        pin 22 -> 0
        delay 50000
        pin 22 -> 0
        delay 50000
        pin 22 -> 0
        delay 50000
        pin 22 -> 1
    )"));
}

/** Cycles of the charge monitor, with the channel records of one module. */
class PortableCharge : public PortablePower {
protected:
    PortableCharge()
    {
        files.write_factory_setup("{}");
        modules->m_orvanXIp[0] = "127.0.0.1";
        modules->setNumberofChannels(1);
        EXPECT_EQ(modules->load_database(0), 0);
        modules->update_battery_status(-1, 0);
        logs.clear();
        trace();
    }
    ~PortableCharge() override { end_module_service(); }

    void cycle() { peer.charge_cycle(retry, orvanx_on); }
    void cycle_at(uint16_t percentage)
    {
        battery->set(0x0D, percentage);
        cycle();
    }
    int shown_charge() { return record().SYSTEM.Battery; }
    int shown_status() { return record().SYSTEM.CurrentStatus; }
    /** The waits since the trace was last taken. */
    std::vector<std::string> waits()
    {
        auto lines = board->trace().lines_with({"delay "});
        board->trace().clear();
        return lines;
    }

    int retry = 0;
    bool orvanx_on = true;

private:
    const ORVAN_CONFIG& record() { return *reinterpret_cast<ORVAN_CONFIG*>(modules->get_channelDB(1)); }

    orvan_test::InstrumentFiles files;
    Scpi_Orvanx* modules = Scpi_Orvanx::getInstance();
};

TEST_F(PortableCharge, ACycleReadsTheBatteryAndThenWaits5Seconds)
{
    cycle();
    EXPECT_TRUE(expect_trace(trace(), R"(
        i2c 0x09 open
        i2c 0x0b open
        i2c 0x09 [0x3f] = 0x7f00
        i2c 0x0b [0x0d] -> 0x0050
        i2c 0x0b [0x0a] -> 0xff38
        i2c 0x0b [0x09] -> 0x3039
        delay 5000000
    )"));
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_INFO, "Battery:80% status:-1 volt:12.345"}}));
    EXPECT_EQ(shown_charge(), 71);
    EXPECT_EQ(shown_status(), -1);
}

TEST_F(PortableCharge, BatteryCharge30To100PercentIsShownAs0To100)
{
    for (int percentage = 0; percentage <= 100; ++percentage) {
        SCOPED_TRACE(percentage);
        cycle_at(static_cast<uint16_t>(percentage));
        EXPECT_EQ(shown_charge(), percentage <= 30 ? 0 : (percentage - 30) * 100 / 70);
    }
    for (const auto& [percentage, shown] :
         {std::pair{29, 0}, {30, 0}, {31, 1}, {33, 4}, {34, 5}, {65, 50}, {99, 98}, {100, 100}}) {
        cycle_at(static_cast<uint16_t>(percentage));
        EXPECT_EQ(shown_charge(), shown);
    }
}

TEST_F(PortableCharge, TheStatusIsTheSignOfTheCurrent)
{
    for (const auto& [current, status] :
         {std::pair{0, 0}, {1, 1}, {0x7fff, 1}, {0x8000, -1}, {0xffff, -1}, {0, 0}}) {
        SCOPED_TRACE(current);
        battery->set(0x0A, static_cast<uint16_t>(current));
        cycle();
        EXPECT_EQ(shown_status(), status);
    }
}

TEST_F(PortableCharge, TheModuleIsSwitchedOffAt30PercentAndOnAt34)
{
    const struct {
        uint16_t percentage;
        bool power;
    } rows[] = {
        {100, true}, {34, true}, {31, true},  {30, false}, {31, false}, {33, false},
        {34, true},  {33, true}, {31, true},  {30, false}, {0, false},  {29, false},
        {33, false}, {34, true}, {30, false}, {100, true}, {0, false},  {33, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.percentage);
        cycle_at(row.percentage);
        EXPECT_EQ(board->module_power(), row.power);
        EXPECT_EQ(orvanx_on, row.power);
    }
}

TEST_F(PortableCharge, TheSupplyIsTouchedOnlyToSwitchIt)
{
    const auto expander_accesses = [this] {
        const size_t count = board->trace().lines_with({"i2c 0x20"}).size();
        board->trace().clear();
        return count;
    };
    for (const uint16_t percentage : std::to_array<uint16_t>({100, 34, 31})) {
        cycle_at(percentage);
        EXPECT_EQ(expander_accesses(), 0u);
    }
    cycle_at(30);
    EXPECT_EQ(expander_accesses(), 3u);
    for (const uint16_t percentage : std::to_array<uint16_t>({30, 0, 33})) {
        cycle_at(percentage);
        EXPECT_EQ(expander_accesses(), 0u);
    }
    cycle_at(34);
    EXPECT_EQ(expander_accesses(), 3u);
}

TEST_F(PortableCharge, ASwitchThatFailedIsTriedAgainByEveryCycle)
{
    const auto fault = insert_fault(board->i2c(), kExpander);
    const auto failures = [this](const char* text) { return logs.count(LOG_ERR, text); };
    fault->not_acknowledging(true);
    for (int cycles = 0; cycles < 3; ++cycles) {
        cycle_at(20);
    }
    EXPECT_EQ(failures("turn_orvanx_on: failed to turn orvan off"), 3u);
    EXPECT_TRUE(orvanx_on);
    EXPECT_EQ(waits(), std::vector<std::string>(3, "delay 5000000")) << "it is no failed reading";
    EXPECT_EQ(shown_charge(), 0);
    fault->not_acknowledging(false);
    cycle();
    EXPECT_FALSE(orvanx_on);
    EXPECT_FALSE(board->module_power());

    fault->not_acknowledging(true);
    for (int cycles = 0; cycles < 2; ++cycles) {
        cycle_at(50);
    }
    EXPECT_EQ(failures("turn_orvanx_on: failed to turn orvan on"), 2u);
    EXPECT_FALSE(orvanx_on);
    fault->not_acknowledging(false);
    cycle();
    EXPECT_TRUE(orvanx_on);
    EXPECT_TRUE(board->module_power());
}

TEST_F(PortableCharge, WithoutAnExpanderTheModuleCountsAsSwitched)
{
    insert_fault(board->i2c(), kExpander)->absent(true);
    cycle_at(20);
    EXPECT_FALSE(orvanx_on);
    EXPECT_TRUE(board->module_power());
}

TEST_F(PortableCharge, AnyAccessThatFailsFailsTheCycle)
{
    const struct {
        const char* name;
        uint8_t chip;
        std::optional<size_t> acknowledged; // transfers; none: the chip is not fitted
    } rows[] = {
        {"no charger", kCharger, {}},   {"charger", kCharger, 0},      {"no battery", kBattery, {}},
        {"charge", kBattery, 0},        {"charge, read", kBattery, 1}, {"current", kBattery, 2},
        {"current, read", kBattery, 3}, {"voltage", kBattery, 4},      {"voltage, read", kBattery, 5},
    };
    battery->set(0x0D, 10); // would switch the module off
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto sound = board->i2c().device(row.chip);
        const auto fault = insert_fault(board->i2c(), row.chip);
        fault->absent(!row.acknowledged);
        fault->refuse_after(row.acknowledged);
        retry = 0;
        logs.clear();
        trace();
        cycle();
        EXPECT_EQ(retry, 1);
        EXPECT_EQ(waits(), std::vector<std::string>{"delay 100000"});
        EXPECT_TRUE(logs.lines().empty());
        EXPECT_EQ(shown_charge(), -1) << "the record keeps what it has";
        EXPECT_EQ(shown_status(), 0);
        EXPECT_TRUE(orvanx_on);
        EXPECT_TRUE(board->module_power());
        board->i2c().attach(row.chip, sound);
    }
}

TEST_F(PortableCharge, AFailedAccessDoesNotPreventTheOthers)
{
    insert_fault(board->i2c(), kCharger)->not_acknowledging(true);
    insert_fault(board->i2c(), kBattery)->refuse_after(0);
    cycle();
    EXPECT_TRUE(expect_trace(trace(), R"(
        i2c 0x09 open
        i2c 0x0b open
        i2c 0x09 [0x3f] = 0x7f00 -> EREMOTEIO
        i2c 0x0b [0x0d] -> EREMOTEIO
        i2c 0x0b [0x0a] -> EREMOTEIO
        i2c 0x0b [0x09] -> EREMOTEIO
        delay 100000
    )"));
}

TEST_F(PortableCharge, FiveQuickRetriesAreFollowedByALogLineAndALongWaitRepeatedly)
{
    const auto fault = insert_fault(board->i2c(), kBattery);
    fault->not_acknowledging(true);
    std::vector<std::string> round(5, "delay 100000");
    round.emplace_back("delay 5000000");
    const LogLine line{LOG_INFO, "ChargeMonitor: Battery access failed"};
    for (size_t rounds = 1; rounds <= 3; ++rounds) {
        for (size_t cycles = 0; cycles < round.size(); ++cycles) {
            EXPECT_EQ(logs.lines(), std::vector<LogLine>(rounds - 1, line));
            cycle();
        }
        EXPECT_EQ(waits(), round);
        EXPECT_EQ(logs.lines(), std::vector<LogLine>(rounds, line));
    }
}

TEST_F(PortableCharge, AGoodCycleRestartsTheCountOfRetries)
{
    const auto fault = insert_fault(board->i2c(), kBattery);
    fault->not_acknowledging(true);
    for (int cycles = 0; cycles < 4; ++cycles) {
        cycle();
    }
    EXPECT_EQ(retry, 4);
    fault->not_acknowledging(false);
    cycle();
    EXPECT_EQ(retry, 0);
    fault->not_acknowledging(true);
    trace();
    for (int cycles = 0; cycles < 5; ++cycles) {
        cycle();
    }
    EXPECT_EQ(waits(), std::vector<std::string>(5, "delay 100000"));
    EXPECT_EQ(logs.count(LOG_INFO, "ChargeMonitor: Battery access failed"), 0u);
}

TEST_F(PortableCharge, TheBusIsHeldForTheReadingButNotForTheWait)
{
    std::mutex& bus = device->GetSPIhandler()->mtx;
    const auto bus_is_free = [&bus] {
        bool free = false;
        std::thread([&] {
            free = bus.try_lock();
            if (free) {
                bus.unlock();
            }
        }).join();
        return free;
    };
    int accesses = 0;
    const auto check = [&] {
        EXPECT_FALSE(bus_is_free());
        ++accesses;
    };
    battery->on_access(check);
    charger->on_access(check);
    const size_t descriptors = orvan_test::open_descriptors();
    std::thread monitor([this] { cycle(); });
    EXPECT_TRUE(board->clock().wait_for_sleepers(1));
    EXPECT_GE(accesses, 4);
    EXPECT_TRUE(bus_is_free());
    EXPECT_EQ(orvan_test::open_descriptors(), descriptors + 2) << "the handles stay open";
    board->clock().advance(5 * kSecond);
    monitor.join();
    EXPECT_EQ(orvan_test::open_descriptors(), descriptors) << "the handles are closed";
}

} // namespace
