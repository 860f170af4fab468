// The third platform's battery: its charge, and the cycles of the charge monitor.

#include <mutex>
#include <thread>
#include <utility>

#include "dataorvan.h"
#include "end_module_service.h"
#include "ksr7000_bench.h"
#include "support/instrument_files.h"
#include "support/loopback.h"

using namespace board_test;
using namespace HaldeElec::Orvan;
using orvan_test::LogLine;
using sim_board::expect_trace;
using Lines = std::vector<std::string>;

namespace {

/** With the channel record of one module. */
class Ksr7000Charge : public Ksr7000Test {
protected:
    Ksr7000Charge()
    {
        files.write_factory_setup("{}");
        modules->m_orvanXIp[0] = "127.0.0.1";
        modules->setNumberofChannels(1);
        EXPECT_EQ(modules->load_database(0), 0);
        modules->update_battery_status(-1, 0);
        device->batteryOn = true;
        logs.clear();
        trace();
    }
    ~Ksr7000Charge() override { end_module_service(); }

    void cycle() { inside().charge_cycle(retry); }
    int shown_charge() { return record().SYSTEM.Battery; }
    int shown_status() { return record().SYSTEM.CurrentStatus; }
    /** The waits since the trace was last taken. */
    Lines waits()
    {
        Lines lines = board->trace().lines_with({"delay "});
        board->trace().clear();
        return lines;
    }

    int retry = 0;

private:
    const ORVAN_CONFIG& record() { return *reinterpret_cast<ORVAN_CONFIG*>(modules->get_channelDB(1)); }

    orvan_test::InstrumentFiles files;
    Scpi_Orvanx* modules = Scpi_Orvanx::getInstance();
};

TEST_F(Ksr7000Charge, IsReadFromTheBattery)
{
    battery->set(0x0D, 67);
    uint16_t percentage = 0xffff;
    EXPECT_EQ(device->GetBatteryCharge(percentage), 0);
    EXPECT_EQ(percentage, 67);
    EXPECT_TRUE(expect_trace(trace(), R"(
        i2c 0x0b open
        i2c 0x0b [0x0d] -> 0x0043
    )"));
}

TEST_F(Ksr7000Charge, WithoutTheBatteryOptionIsZeroAndNothingIsRead)
{
    device->batteryOn = false;
    uint16_t percentage = 0xffff;
    EXPECT_EQ(device->GetBatteryCharge(percentage), 0);
    EXPECT_EQ(percentage, 0);
    EXPECT_TRUE(trace().empty());
}

TEST_F(Ksr7000Charge, ThatCannotBeReadIsZeroAndLogged)
{
    const auto chip = fault(kBattery);
    for (const bool fitted : {false, true}) {
        chip->absent(!fitted);
        chip->not_acknowledging(true);
        logs.clear();
        uint16_t percentage = 0xffff;
        EXPECT_EQ(device->GetBatteryCharge(percentage), 0);
        EXPECT_EQ(percentage, 0);
        EXPECT_EQ(logs.lines(),
                  (std::vector<LogLine>{{LOG_ERR, "GetBatteryCharge: failed to read battery charge"}}));
    }
}

TEST_F(Ksr7000Charge, CycleReadsChargeAndCurrentAndThenWaits5Seconds)
{
    cycle();
    EXPECT_TRUE(expect_trace(trace(), R"(
        i2c 0x09 open
        i2c 0x0b open
        i2c 0x09 [0x3f] = 0x7f00
        i2c 0x0b [0x0d] -> 0x0050
        i2c 0x0b [0x0a] -> 0xff38
        delay 5000000
    )"));
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_INFO, "Battery: 80% status: -1"}}));
    EXPECT_EQ(shown_charge(), 80);
    EXPECT_EQ(shown_status(), -1);
}

TEST_F(Ksr7000Charge, IsShownUnscaledAndSwitchesNothing)
{
    for (const int percentage : {100, 65, 34, 33, 31, 30, 29, 5, 1, 0, 4, 34, 100}) {
        battery->set(0x0D, static_cast<uint16_t>(percentage));
        cycle();
        EXPECT_EQ(shown_charge(), percentage);
    }
    EXPECT_TRUE(board->trace().lines_with({"i2c 0x20", "i2c 0x24", "pin"}).empty());
}

TEST_F(Ksr7000Charge, StatusIsTheSignOfTheCurrent)
{
    for (const auto& [current, status] :
         {std::pair{0, 0}, {1, 1}, {0x7fff, 1}, {0x8000, -1}, {0xffff, -1}, {0, 0}}) {
        battery->set(0x0A, static_cast<uint16_t>(current));
        cycle();
        EXPECT_EQ(shown_status(), status) << current;
    }
}

TEST_F(Ksr7000Charge, AnyAccessThatFailsFailsTheCycle)
{
    const struct {
        const char* name;
        uint8_t chip;
        std::optional<size_t> acknowledged; // transfers; none: the chip is not fitted
    } rows[] = {
        {"no charger", kCharger, {}},   {"charger", kCharger, 0},      {"no battery", kBattery, {}},
        {"charge", kBattery, 0},        {"charge, read", kBattery, 1}, {"current", kBattery, 2},
        {"current, read", kBattery, 3},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto sound = board->i2c().device(row.chip);
        const auto chip = fault(row.chip);
        chip->absent(!row.acknowledged);
        chip->refuse_after(row.acknowledged);
        retry = 0;
        cycle();
        EXPECT_EQ(retry, 1);
        EXPECT_EQ(waits(), Lines{"delay 100000"});
        EXPECT_TRUE(logs.lines().empty());
        EXPECT_EQ(shown_charge(), -1) << "the record keeps what it has";
        EXPECT_EQ(shown_status(), 0);
        board->i2c().attach(row.chip, sound);
    }
}

TEST_F(Ksr7000Charge, SixFailedCyclesLogOneLineAndAGoodOneRestartsTheCount)
{
    const auto chip = fault(kBattery);
    chip->not_acknowledging(true);
    Lines round(5, "delay 100000");
    round.emplace_back("delay 5000000");
    const LogLine line{LOG_INFO, "ChargeMonitor: Battery access failed"};
    for (size_t rounds = 1; rounds <= 2; ++rounds) {
        for (size_t cycles = 0; cycles < round.size(); ++cycles) {
            cycle();
        }
        EXPECT_EQ(waits(), round);
        EXPECT_EQ(logs.lines(), std::vector<LogLine>(rounds, line));
    }
    for (int cycles = 0; cycles < 4; ++cycles) {
        cycle();
    }
    EXPECT_EQ(retry, 4);
    chip->not_acknowledging(false);
    cycle();
    EXPECT_EQ(retry, 0);
}

TEST_F(Ksr7000Charge, BusIsHeldForTheReadingButNotForTheWaitAndTheHandlesStayOpen)
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
    EXPECT_GE(accesses, 3);
    EXPECT_TRUE(bus_is_free());
    EXPECT_EQ(orvan_test::open_descriptors(), descriptors + 2);
    board->clock().advance(5'000'000);
    monitor.join();
    EXPECT_EQ(orvan_test::open_descriptors(), descriptors);
}

} // namespace
