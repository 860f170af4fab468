// The words of SBData 1.1 on the board's clock, and the charge controller.

#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

#include "board/charge_controller.h"
#include "board/smart_battery.h"

namespace sim_board {
namespace {

using Bytes = std::vector<uint8_t>;
using Flow = SmartBattery::Flow;

constexpr uint64_t kHourUs = 3'600'000'000;

struct BatteryTest : testing::Test {
    std::shared_ptr<Clock> clock = std::make_shared<Clock>(Clock::Mode::kManual);
    SmartBattery battery{clock};

    /** Reads a word over the bus; -1 if not acknowledged. */
    int get(uint8_t command)
    {
        const Bytes pointer{command};
        Bytes word(2);
        return battery.write(pointer) && battery.read(word) ? word[0] | word[1] << 8 : -1;
    }
    int percent() { return get(0x0d); }
    int milliamperes() { return static_cast<int16_t>(get(0x0a)); }
};

TEST_F(BatteryTest, IsInitiallyFullAndDrawsNoCurrent)
{
    EXPECT_EQ(percent(), 100);
    EXPECT_EQ(milliamperes(), 0);
    EXPECT_EQ(get(0x09), 12600);
    EXPECT_EQ(get(0x0f), 6600);
    EXPECT_EQ(get(0x10), 6600);
    EXPECT_EQ(get(0x18), 6600);
    EXPECT_EQ(get(0x19), 10800);
    EXPECT_EQ(get(0x08), 2981);
    EXPECT_EQ(get(0x16), 0x00a0);
}

TEST_F(BatteryTest, ShowsEveryPercentageAsSet)
{
    battery.set_flow(Flow::kRest);
    for (int set = 0; set <= 100; ++set) {
        battery.set_charge(set);
        EXPECT_EQ(percent(), set);
        EXPECT_EQ(get(0x0f), 66 * set);
        EXPECT_EQ(get(0x09), 9000 + 36 * set);
        EXPECT_EQ(milliamperes(), 0);
    }
    battery.set_charge(101);
    EXPECT_EQ(percent(), 100);
    battery.set_charge(-1);
    EXPECT_EQ(percent(), 0);
}

TEST_F(BatteryTest, DrainsOnTheBoardsClockUntilItIsEmpty)
{
    battery.set_charge(50);
    battery.set_flow(Flow::kDrain);
    EXPECT_EQ(percent(), 50);
    EXPECT_EQ(milliamperes(), -1500);
    EXPECT_EQ(get(0x0b), get(0x0a));
    EXPECT_EQ(get(0x16), 0x00c0);
    clock->advance(kHourUs);
    EXPECT_EQ(get(0x0f), 1800);
    EXPECT_EQ(percent(), 27);
    clock->advance(2 * kHourUs);
    EXPECT_EQ(percent(), 0);
    EXPECT_EQ(milliamperes(), 0);
    EXPECT_EQ(get(0x09), 9000);
    EXPECT_EQ(get(0x16), 0x0090);
}

TEST_F(BatteryTest, FillsOnTheBoardsClockUntilItIsFull)
{
    battery.set_charge(20);
    battery.set_flow(Flow::kFill);
    EXPECT_EQ(milliamperes(), 2000);
    EXPECT_EQ(get(0x16), 0x0080);
    clock->advance(kHourUs);
    EXPECT_EQ(get(0x0f), 3320);
    EXPECT_EQ(percent(), 50);
    clock->advance(10 * kHourUs);
    EXPECT_EQ(percent(), 100);
    EXPECT_EQ(milliamperes(), 0);
}

TEST_F(BatteryTest, AChangeOfCurrentKeepsTheChargeSoFar)
{
    battery.set_charge(50);
    battery.set_flow(Flow::kDrain);
    clock->advance(kHourUs);
    battery.set_flow(Flow::kFill);
    clock->advance(kHourUs);
    EXPECT_EQ(get(0x0f), 3300 - 1500 + 2000);
    battery.set_flow(Flow::kRest);
    clock->advance(kHourUs);
    EXPECT_EQ(get(0x0f), 3300 - 1500 + 2000);
}

TEST_F(BatteryTest, AYearOfDrainIsNoMoreThanEmpty)
{
    battery.set_flow(Flow::kDrain);
    clock->advance(365 * 24 * kHourUs);
    EXPECT_EQ(percent(), 0);
}

TEST_F(BatteryTest, RemovedKeepsItsCharge)
{
    EXPECT_TRUE(battery.fitted());
    battery.set_charge(50);
    battery.set_flow(Flow::kDrain);
    battery.set_fitted(false);
    EXPECT_FALSE(battery.fitted());
    clock->advance(kHourUs);
    battery.set_fitted(true);
    EXPECT_EQ(percent(), 50);
    clock->advance(kHourUs);
    EXPECT_EQ(percent(), 27);
}

TEST_F(BatteryTest, OnlyItsModeCanBeWritten)
{
    for (int command = 0; command < 0x40; ++command) {
        const Bytes sent{static_cast<uint8_t>(command), 0x81, 0x60};
        EXPECT_EQ(battery.write(sent), command == 0x03) << command;
    }
    EXPECT_EQ(get(0x03), 0x6081);
    EXPECT_EQ(percent(), 100);
}

TEST_F(BatteryTest, AnUnknownFunctionIsNotAcknowledged)
{
    for (const uint8_t command : Bytes{0x00, 0x11, 0x20, 0xff}) {
        EXPECT_EQ(get(command), -1) << int{command};
    }
    EXPECT_THROW(battery.word(static_cast<SmartBattery::Command>(0x11)), std::out_of_range);
    EXPECT_EQ(battery.word(SmartBattery::kVoltage), 12600);
}

TEST_F(BatteryTest, OnlyWordsAreWritten)
{
    for (const Bytes& sent : {Bytes{0x03, 0x11}, Bytes{0x03, 0x11, 0x22, 0x33}}) {
        EXPECT_FALSE(battery.write(sent));
    }
    EXPECT_EQ(get(0x03), 0);
}

TEST(ChargeController, KeepsItsFiveWordsInitiallyZero)
{
    ChargeController chip;
    for (int reg = 0; reg < 0x100; ++reg) {
        const auto address = static_cast<uint8_t>(reg);
        const bool exists = reg == 0x12 || reg == 0x14 || reg == 0x31 || reg == 0x3e || reg == 0x3f;
        const Bytes pointer{address};
        const Bytes sent{address, 0x34, address};
        EXPECT_EQ(chip.write(pointer), exists) << reg;
        if (exists) {
            EXPECT_EQ(chip.word(address), 0);
        }
        EXPECT_EQ(chip.write(sent), exists) << reg;
    }
    for (const uint8_t reg : ChargeController::kRegisters) {
        const Bytes pointer{reg};
        Bytes received(2);
        EXPECT_TRUE(chip.write(pointer));
        EXPECT_TRUE(chip.read(received));
        EXPECT_EQ(received, (Bytes{0x34, reg}));
        EXPECT_EQ(chip.word(reg), 0x34 | reg << 8);
    }
    EXPECT_THROW(chip.word(0x13), std::out_of_range);
}

} // namespace
} // namespace sim_board
