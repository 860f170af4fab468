// Keypad, power button, battery and module power on the boards of the platforms.

#include <atomic>
#include <ostream>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>
#include <wiringPi.h>
#include <wiringPiI2C.h>

#include "board/current_board.h"

namespace sim_board {
namespace {

std::atomic<int> g_calls{0};

struct I2c {
    explicit I2c(int address) : fd(wiringPiI2CSetup(address)) {}
    ~I2c() { ::close(fd); }
    int fd;
};

TEST(FrontPanelWiring, EachPlatformHasItsChips)
{
    const struct {
        const BoardWiring* wiring;
        bool keypad;
        bool battery;
    } rows[] = {
        {&kBenchtopWiring, true, false}, {&kPortableWiring, false, true}, {&kKsr7000Wiring, true, true}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.wiring->name);
        Board board(*row.wiring, Clock::Mode::kManual);
        EXPECT_EQ(board.i2c().device(0x34) != nullptr, row.keypad);
        EXPECT_EQ(board.keypad() != nullptr, row.keypad);
        EXPECT_EQ(board.i2c().device(0x0b) != nullptr, row.battery);
        EXPECT_EQ(board.battery() != nullptr, row.battery);
        EXPECT_EQ(board.i2c().device(0x09) != nullptr, row.battery);
        EXPECT_EQ(board.charge_controller() != nullptr, row.battery);
    }
}

TEST(FrontPanelWiring, TheKeypadPullsPin15Down)
{
    g_calls = 0;
    InstalledBoard board(kBenchtopWiring);
    const I2c keypad(0x34);
    wiringPiSetup();
    ASSERT_EQ(wiringPiISR(15, INT_EDGE_FALLING, [] { ++g_calls; }), 0);
    for (const int line : {0x1d, 0x1e, 0x1f}) {
        wiringPiI2CWriteReg8(keypad.fd, line, 0xff);
    }
    wiringPiI2CWriteReg8(keypad.fd, 0x01, 0x11);
    EXPECT_EQ(digitalRead(15), 1);
    board->keypad()->press(0, 0);
    board->keypad()->release(0, 0);
    EXPECT_EQ(digitalRead(15), 0);
    ASSERT_TRUE(board->gpio().wait_for_handlers());
    EXPECT_EQ(g_calls, 1);
    EXPECT_EQ(wiringPiI2CReadReg8(keypad.fd, 0x04), 0x81);
    wiringPiI2CWriteReg8(keypad.fd, 0x02, 0x01);
    ASSERT_TRUE(board->gpio().wait_for_handlers());
    EXPECT_EQ(g_calls, 2) << "an event remains, so the line falls again";
    EXPECT_EQ(wiringPiI2CReadReg8(keypad.fd, 0x04), 0x01);
    wiringPiI2CWriteReg8(keypad.fd, 0x02, 0x01);
    EXPECT_EQ(digitalRead(15), 1);
}

TEST(PowerButton, OfThePortableIsAFallingEdgeOfPin22)
{
    g_calls = 0;
    InstalledBoard board(kPortableWiring);
    wiringPiSetup();
    ASSERT_EQ(wiringPiISR(22, INT_EDGE_FALLING, [] { ++g_calls; }), 0);
    board->power_button(true);
    EXPECT_EQ(digitalRead(22), 0);
    board->power_button(false);
    EXPECT_EQ(digitalRead(22), 1);
    ASSERT_TRUE(board->gpio().wait_for_handlers());
    EXPECT_EQ(g_calls, 1);
}

// The registers of port B are set as the platform's set-up leaves them.
void expect_rising_edge_of_pin_2(const BoardWiring& wiring, int direction, int bit, int compare)
{
    g_calls = 0;
    InstalledBoard board(wiring);
    wiringPiSetup();
    const I2c expander(0x20);
    wiringPiI2CWriteReg8(expander.fd, 0x0b, 0x44);
    wiringPiI2CWriteReg8(expander.fd, 0x01, direction);
    wiringPiI2CWriteReg8(expander.fd, 0x07, compare);
    wiringPiI2CWriteReg8(expander.fd, 0x09, bit);
    wiringPiI2CWriteReg8(expander.fd, 0x05, bit);
    ASSERT_EQ(wiringPiISR(2, INT_EDGE_RISING, [] { ++g_calls; }), 0);
    EXPECT_EQ(digitalRead(2), 0);
    EXPECT_EQ(wiringPiI2CReadReg8(expander.fd, 0x13) & 0x40, 0);
    board->power_button(true);
    ASSERT_TRUE(board->gpio().wait_for_handlers());
    EXPECT_EQ(g_calls, 1);
    EXPECT_NE(wiringPiI2CReadReg8(expander.fd, 0x13) & 0x40, 0) << "held";
    board->power_button(false);
    EXPECT_EQ(wiringPiI2CReadReg8(expander.fd, 0x13) & 0x40, 0) << "released";
}

TEST(PowerButton, OfTheBenchtopInterruptsByOneLineAndIsHeldOnAnother)
{
    expect_rising_edge_of_pin_2(kBenchtopWiring, 0x6e, 0x20, 0x20);
}

TEST(PowerButton, OfTheThirdPlatformUsesOneLine)
{
    expect_rising_edge_of_pin_2(kKsr7000Wiring, 0xff, 0x40, 0x00);
}

TEST(ModulePower, IsOnUntilTheOutputIsSwitchedOff)
{
    InstalledBoard board(kPortableWiring);
    std::vector<bool> seen;
    board->watch_module_power([&](bool on) { seen.push_back(on); });
    EXPECT_TRUE(board->module_power());
    const I2c expander(0x20);
    wiringPiI2CWriteReg8(expander.fd, 0x14, 0x80);
    wiringPiI2CWriteReg8(expander.fd, 0x00, 0x03);
    EXPECT_TRUE(board->module_power());
    EXPECT_TRUE(seen.empty()) << "set-up does not touch the module";
    wiringPiI2CWriteReg8(expander.fd, 0x14, 0x05);
    EXPECT_FALSE(board->module_power());
    wiringPiI2CWriteReg8(expander.fd, 0x14, 0x09);
    wiringPiI2CWriteReg8(expander.fd, 0x14, 0x89);
    EXPECT_TRUE(board->module_power());
    EXPECT_EQ(seen, (std::vector<bool>{false, true}));
}

TEST(ModulePower, AnOutputWithoutItsLatchSetSwitchesOff)
{
    InstalledBoard board(kPortableWiring);
    const I2c expander(0x20);
    wiringPiI2CWriteReg8(expander.fd, 0x00, 0x03);
    EXPECT_FALSE(board->module_power());
}

TEST(ModulePower, ReturnsWhenTheExpanderIsReset)
{
    InstalledBoard board(kPortableWiring);
    {
        const I2c expander(0x20);
        wiringPiI2CWriteReg8(expander.fd, 0x00, 0x03);
    }
    EXPECT_FALSE(board->module_power());
    wiringPiSetup();
    pinMode(26, OUTPUT);
    EXPECT_TRUE(board->module_power());
}

TEST(ModulePower, CannotBeSwitchedOnTheOtherPlatforms)
{
    for (const BoardWiring* wiring : {&kBenchtopWiring, &kKsr7000Wiring}) {
        InstalledBoard board(*wiring);
        const I2c expander(0x20);
        wiringPiI2CWriteReg8(expander.fd, 0x00, 0x00);
        EXPECT_TRUE(board->module_power());
    }
}

TEST(FrontPanelWiring, ChipsHeldForLongerThanTheirBoardStayUsable)
{
    auto board = std::make_unique<Board>(kKsr7000Wiring, Clock::Mode::kManual);
    const auto keypad = board->keypad();
    const auto battery = board->battery();
    board.reset();
    const std::vector<uint8_t> rows{0x1d, 0xff};
    const std::vector<uint8_t> columns{0x1e, 0xff};
    const std::vector<uint8_t> enable{0x01, 0x01};
    for (const auto& sent : {rows, columns, enable}) {
        EXPECT_TRUE(keypad->write(sent));
    }
    EXPECT_TRUE(keypad->press(0, 0));
    EXPECT_EQ(keypad->interrupt_level(), 0);
    EXPECT_EQ(battery->word(SmartBattery::kRelativeStateOfCharge), 100);
}

} // namespace
} // namespace sim_board
