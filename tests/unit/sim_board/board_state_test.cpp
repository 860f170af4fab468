#include <algorithm>
#include <array>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "board/board_state.h"
#include "board/faulty_i2c_device.h"
#include "board/line_functions.h"
#include "spi_master.h"

namespace sim_board {
namespace {

/** The value of a name; a text that no line has if it is missing. */
std::string state_of(Board& board, const std::string& name)
{
    std::istringstream lines(board_state(board));
    for (std::string line; std::getline(lines, line);) {
        if (line.substr(0, line.find("  ")) == name) {
            return line.substr(std::min<size_t>(line.find_first_not_of(' ', name.size()), line.size()));
        }
    }
    return "(no such line)";
}

void put(Board& board, uint8_t address, uint8_t reg, uint8_t value)
{
    board.expander(address).write(std::array{reg, value});
}

class StateOf : public testing::TestWithParam<const BoardWiring*> {
protected:
    Board board{*GetParam(), Clock::Mode::kManual};
};
INSTANTIATE_TEST_SUITE_P(Platforms, StateOf,
                         testing::Values(&kBenchtopWiring, &kPortableWiring, &kKsr7000Wiring),
                         [](const auto& tested) { return std::string(tested.param->name); });

TEST_P(StateOf, HasALineForEachFunctionAndThePlatform)
{
    EXPECT_EQ(state_of(board, "board"), GetParam()->name);
    std::set<std::string_view> names;
    for (const LineFunction& line : line_functions(*GetParam())) {
        EXPECT_TRUE(names.insert(line.name).second) << line.name;
        EXPECT_NE(state_of(board, std::string(line.name)), "(no such line)");
    }
    EXPECT_FALSE(names.empty());
}

TEST_P(StateOf, AFunctionFollowsOnlyItsLine)
{
    for (const LineFunction& line : line_functions(*GetParam())) {
        for (const ExpanderWiring& expander : GetParam()->expanders) {
            for (const uint8_t direction : std::array<uint8_t, 2>{0x00, 0x01}) {
                put(board, expander.address, direction, 0x00);
            }
        }
        const auto latch = static_cast<uint8_t>(0x14 + line.port);
        put(board, line.address, latch, line.bit);
        EXPECT_EQ(state_of(board, std::string(line.name)), line.at_1) << line.name;
        put(board, line.address, latch, static_cast<uint8_t>(~line.bit));
        EXPECT_EQ(state_of(board, std::string(line.name)), line.at_0) << line.name;
    }
}

TEST_P(StateOf, AFunctionWhosePinIsAnInputIsMarked)
{
    for (const LineFunction& line : line_functions(*GetParam())) {
        const std::string expected = std::string(line.as_input.empty() ? line.at_1 : line.as_input);
        put(board, line.address, static_cast<uint8_t>(0x14 + line.port), line.bit);
        EXPECT_EQ(state_of(board, std::string(line.name)), expected + " (its pin is an input)") << line.name;
    }
}

TEST_P(StateOf, LookingChangesNothing)
{
    put(board, 0x20, 0x05, 0xff); // an interrupt on any change, which a read of the port would end
    board.expander(0x20).drive(Mcp23017::kB, 0x01, 0x01);
    const uint8_t pending = board.expander(0x20).reg(Mcp23017::kIntf, Mcp23017::kB);
    ASSERT_NE(pending, 0);
    board.trace().clear();
    const std::string first = board_state(board);
    EXPECT_EQ(board_state(board), first);
    EXPECT_EQ(board.expander(0x20).reg(Mcp23017::kIntf, Mcp23017::kB), pending);
    EXPECT_TRUE(board.trace().lines().empty());
}

TEST_P(StateOf, ReportsThePowerButton)
{
    EXPECT_EQ(state_of(board, "power button"), "released");
    board.power_button(true);
    EXPECT_EQ(state_of(board, "power button"), "pressed");
    board.power_button(false);
    EXPECT_EQ(state_of(board, "power button"), "released");
}

TEST_P(StateOf, ReportsAFailingChip)
{
    EXPECT_EQ(state_of(board, "i2c 0x20"), "(no such line)");
    const auto fault = insert_fault(board.i2c(), 0x20);
    EXPECT_EQ(state_of(board, "i2c 0x20"), "(no such line)");
    fault->not_acknowledging(true);
    EXPECT_EQ(state_of(board, "i2c 0x20"), "acknowledges nothing");
    fault->absent(true);
    EXPECT_EQ(state_of(board, "i2c 0x20"), "absent");
}

TEST(BoardState, OfABenchtopAtPowerOn)
{
    Board board(kBenchtopWiring, Clock::Mode::kManual);
    EXPECT_EQ(board_state(board), R"(board                             benchtop
RF output, slot 1                 off (its pin is an input)
RF output, slot 2                 off (its pin is an input)
RF output, slot 3                 off (its pin is an input)
RF output, slot 4                 off (its pin is an input)
trigger switch, slot 1            coupled (its pin is an input)
trigger switch, slot 2            coupled (its pin is an input)
trigger switch, slot 3            coupled (its pin is an input)
trigger switch, slot 4            coupled (its pin is an input)
trigger termination, channel 1    50 Ohm (its pin is an input)
trigger termination, channel 2    50 Ohm (its pin is an input)
trigger termination, channel 3    50 Ohm (its pin is an input)
trigger termination, channel 4    50 Ohm (its pin is an input)
modulation, slot 1                internal: path relay at 1, input relay released
modulation, slot 2                internal: path relay at 1, input relay released
modulation, slot 3                internal: path relay at 1, input relay released
modulation, slot 4                internal: path relay at 1, input relay released
fan                               full speed, no drive value yet
keys held, row and column         none
power button                      released
expander 0x20                     latch A 0x00 B 0x00, inputs A 0xff B 0xff, pins A 0x00 B 0x20
expander 0x24                     latch A 0x00 B 0x00, inputs A 0xff B 0xff, pins A 0x00 B 0x00
)");
}

TEST(BoardState, OfAPortableAtPowerOn)
{
    Board board(kPortableWiring, Clock::Mode::kManual);
    EXPECT_EQ(board_state(board), R"(board                             portable
module power                      on (its pin is an input)
fan 1 speed                       high (its pin is an input)
fan 2 speed                       high (its pin is an input)
fan 1 reset                       held (its pin is an input)
fan 2 reset                       held (its pin is an input)
charger                           plugged in
battery                           100 %, at rest
power button                      released
expander 0x20                     latch A 0x00 B 0x00, inputs A 0xff B 0xff, pins A 0x80 B 0x00
)");
}

TEST(BoardState, ReportsTheFanDrive)
{
    Board board(kKsr7000Wiring, Clock::Mode::kManual);
    spi_exchange(*board.fan(), {0, 0, 0x3f});
    EXPECT_EQ(state_of(board, "fan"), "75 % of full speed, drive value 0x3f");
}

TEST(BoardState, ReportsTheRoutingOfASlot)
{
    Board board(kBenchtopWiring, Clock::Mode::kManual);
    ModulationRelays& relays = *board.relays();
    const auto strobe = [&](uint8_t a, uint8_t bit) {
        relays.latch(Mcp23017::kA, a);
        relays.latch(Mcp23017::kB, bit);
        relays.latch(Mcp23017::kB, 0);
    };
    strobe(0x00, 0x80);
    EXPECT_EQ(state_of(board, "modulation, slot 1"), "external pulse: path relay at 0, input relay released");
    strobe(0x00, 0x08);
    EXPECT_EQ(state_of(board, "modulation, slot 1"), "external FM: path relay at 0, input relay set");
    strobe(0x20, 0x80);
    EXPECT_EQ(state_of(board, "modulation, slot 1"), "internal: path relay at 1, input relay released");
    strobe(0x00, 0x08);
    EXPECT_EQ(state_of(board, "modulation, slot 1"), "external AM: path relay at 1, input relay set");
}

TEST(BoardState, ReportsTheBattery)
{
    Board board(kPortableWiring, Clock::Mode::kManual);
    board.battery()->set_charge(35);
    board.battery()->set_flow(SmartBattery::Flow::kDrain);
    EXPECT_EQ(state_of(board, "battery"), "35 %, draining");
    EXPECT_EQ(state_of(board, "charger"), "not plugged in");
    board.battery()->set_flow(SmartBattery::Flow::kFill);
    EXPECT_EQ(state_of(board, "battery"), "35 %, charging");
    EXPECT_EQ(state_of(board, "charger"), "plugged in");
    board.battery()->set_fitted(false);
    EXPECT_EQ(state_of(board, "battery"), "taken out");
}

TEST(BoardState, ReportsTheKeysHeld)
{
    Board board(kKsr7000Wiring, Clock::Mode::kManual);
    EXPECT_EQ(state_of(board, "keys held, row and column"), "none");
    board.keypad()->press(5, 9);
    board.keypad()->press(0, 3);
    EXPECT_EQ(state_of(board, "keys held, row and column"), "0 3, 5 9");
    board.keypad()->release(5, 9);
    EXPECT_EQ(state_of(board, "keys held, row and column"), "0 3");
}

} // namespace
} // namespace sim_board
