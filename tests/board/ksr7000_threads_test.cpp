// The threads of the third platform: charge monitor, fan and keypad.

#include <optional>
#include <string>
#include <vector>

#include <syslog.h>

#include "ksr7000_start_bench.h"
#include "orvan_sdk/IDeviceConnectionHandler.h"

using namespace board_test;
using namespace HaldeElec::Orvan;
using sim_board::SmartBattery;
using Lines = std::vector<std::string>;

namespace {

constexpr TestResult kFail{BIT_FAIL, 0};

// ---- battery

TEST_F(Ksr7000Start, BatteryOptionWithoutABatteryRunsNoChargeMonitor)
{
    start_without_battery();
    EXPECT_FALSE(device->batteryOn);
    uint16_t charge = 0xffff;
    EXPECT_EQ(device->GetBatteryCharge(charge), 0);
    EXPECT_EQ(charge, 0);
    EXPECT_EQ(shown_charge(), -1);
    EXPECT_EQ(shown_status(), 0);
    // A battery inserted later is not noticed.
    board->battery()->set_fitted(true);
    board->trace().clear();
    pass(60 * kSecond);
    EXPECT_TRUE(board->trace().lines_with({"i2c"}).empty());
    EXPECT_EQ(shown_charge(), -1);
}

TEST_F(Ksr7000Start, BatteryWithoutItsOptionRunsNoChargeMonitor)
{
    EEPROM_DEVICE_SETTINGS without = settled_settings();
    without.options = 0x081E; // the portable's bit means nothing here
    store(without);
    start_and_settle();
    EXPECT_TRUE(inside().battery_is_alive());
    EXPECT_FALSE(device->batteryOn);
    EXPECT_EQ(board->clock().sleepers(), 2u);
    EXPECT_EQ(shown_charge(), -1);
}

TEST_F(Ksr7000Start, ChargeIsShownUnscaledAndNothingIsSwitched)
{
    board->battery()->set_flow(SmartBattery::Flow::kRest);
    start_with_battery();
    EXPECT_TRUE(device->batteryOn);
    EXPECT_EQ(shown_charge(), 100);
    board->trace().clear();
    for (const int percent : {65, 34, 30, 29, 0, 4, 5, 34, 99}) {
        board->battery()->set_charge(percent);
        pass(5 * kSecond);
        EXPECT_EQ(shown_charge(), percent);
        uint16_t charge = 0;
        device->GetBatteryCharge(charge);
        EXPECT_EQ(charge, percent);
    }
    EXPECT_TRUE(board->trace().lines_with({"i2c 0x20", "i2c 0x24"}).empty());
    EXPECT_EQ(logs.count(LOG_INFO, "Battery: 29% status: 0"), 1u);

    board->battery()->set_flow(SmartBattery::Flow::kDrain);
    pass(5 * kSecond);
    EXPECT_EQ(shown_status(), -1);
    board->battery()->set_flow(SmartBattery::Flow::kFill);
    pass(5 * kSecond);
    EXPECT_EQ(shown_status(), 1);
}

TEST_F(Ksr7000Start, RemovedBatteryLeavesItsLastCharge)
{
    board->battery()->set_charge(80);
    board->battery()->set_flow(SmartBattery::Flow::kRest);
    start_with_battery();
    board->battery()->set_fitted(false);
    // A round is five short waits and a long one.
    pass(5 * kSecond + 2 * (5 * kSecond + 500'000));
    EXPECT_EQ(logs.count(LOG_INFO, "ChargeMonitor: Battery access failed"), 2u);
    EXPECT_EQ(shown_charge(), 80);
}

// ---- fan

TEST_F(Ksr7000Start, FanIsDrivenByTheTemperatureOfTheModule)
{
    start_without_battery();
    const struct {
        const char* celsius;
        const char* logged;
        const char* drive;
    } rows[] = {
        {"47.999", "47.999000", "7f"}, {"48.0", "48.000000", "3f"}, {"57.999", "57.999000", "3f"},
        {"58.0", "58.000000", "00"},   {"59.0", "59.000000", "00"}, {"60.0", "60.000000", "00"},
        {"100.0", "100.000000", "00"},
    };
    const auto fan_lines = [this] {
        Lines lines;
        for (const std::string& line : board->trace().take()) {
            if (line.starts_with("spi ")) {
                lines.push_back(line);
            } else if (line.starts_with("debug ")) {
                lines.push_back(line.substr(line.find(']') + 1));
            }
        }
        return lines;
    };
    for (const auto& [celsius, logged, drive] : rows) {
        module_reports(celsius);
        board->trace().clear();
        pass(120 * kSecond + kSettlingUs);
        EXPECT_EQ(fan_lines(),
                  (Lines{std::string("Temperature: ") + logged, "OrvanBenchtopDevice::fanSpeed start",
                         std::string("spi fan: 00 00 ") + drive + " -> ff ff ff"}));
    }
    device->SetFanMode(1);
    for (const char* celsius : {"20.0", "90.0"}) {
        module_reports(celsius);
        board->trace().clear();
        pass(120 * kSecond + kSettlingUs);
        EXPECT_EQ(fan_lines().back(), "spi fan: 00 00 19 -> ff ff ff") << celsius;
    }
}

TEST_F(Ksr7000Start, FanHoldsTheBusDuringItsTransferAndRestoresTheChannel)
{
    start_without_battery();
    device->SetSelectChannel(3);
    pass(120 * kSecond); // into the settling of the multiplexer
    EXPECT_EQ(selected(), 4u);
    EXPECT_FALSE(device->GetSPIhandler()->mtx.try_lock());
    pass(kSettlingUs);
    EXPECT_EQ(selected(), 3u);
    ASSERT_TRUE(device->GetSPIhandler()->mtx.try_lock());
    device->GetSPIhandler()->mtx.unlock();
}

TEST_F(Ksr7000Start, FanTestFailsFromTheEleventhFailedCycle)
{
    const auto drive = sim_board::insert_fault(board->spi(), "fan");
    drive->refuse_after(0);
    start_without_battery();
    for (int cycle = 2; cycle <= 10; ++cycle) {
        pass(120 * kSecond + kSettlingUs);
        EXPECT_EQ(test_result(CBIT, kFanTest), kPass) << cycle;
    }
    pass(120 * kSecond + kSettlingUs);
    EXPECT_EQ(test_result(CBIT, kFanTest), kFail);
    drive->refuse_after(std::nullopt);
    pass(2 * (120 * kSecond + kSettlingUs));
    EXPECT_EQ(test_result(CBIT, kFanTest), kPass);

    BITManager* const manager = inside().bit_manager();
    inside().set_bit_manager(nullptr);
    drive->refuse_after(0);
    pass(3 * (120 * kSecond + kSettlingUs));
    inside().set_bit_manager(manager);
    pass(120 * kSecond + kSettlingUs);
    EXPECT_EQ(test_result(CBIT, kFanTest), kPass) << "without a manager no failure was counted";
}

TEST_F(Ksr7000Start, FanModeIsResetToAuto)
{
    start_without_battery();
    device->SetFanMode(1);
    end();
    connect_modules();
    start_and_settle();
    EXPECT_EQ(device->GetFanMode(), 0);
}

// ---- the keypad; its sender runs until the process ends

TEST_F(Ksr7000Start, KeypadIsReadOnceAtTheStartAndThenOnItsInterrupt)
{
    start_without_battery();
    ASSERT_TRUE(board->keypad()->press(3, 2)); // before the interrupt
    board->trace().clear();
    device->RunKbdServer();
    ASSERT_TRUE(board->clock().wait_for_sleepers(threads + 1));
    const Lines lines = board->trace().lines_with({"pin 15", "lock 0"});
    EXPECT_EQ(lines, (Lines{"pin 15 input", "pin 15 isr falling", "lock 0"}));
    EXPECT_EQ(logs.count(LOG_ERR, "RunKbdServer: unable to setup I2C ISR"), 0u);

    ASSERT_TRUE(board->keypad()->press(1, 1));
    ASSERT_TRUE(board->gpio().wait_for_handlers());
    EXPECT_EQ(board->trace().lines_with({"lock 0"}).size(), 2u);
}

TEST_F(Ksr7000Start, MissingKeypadIsNoFailure)
{
    start_without_battery();
    board->i2c().attach(0x34, nullptr);
    board->trace().clear();
    device->RunKbdServer();
    ASSERT_TRUE(board->clock().wait_for_sleepers(threads + 1));
    EXPECT_EQ(logs.count(LOG_ERR, "RunKbdServer: unable to setup I2C ISR"), 0u);
    EXPECT_TRUE(sim_board::expect_trace(
        board->trace().lines_with({"pin 15", "i2c 0x34", "i2c ?", "lock 0", "unlock 0"}), R"(
        pin 15 input
        i2c 0x34 open -> ENXIO
        lock 0
        unlock 0
    )"));
}

} // namespace
