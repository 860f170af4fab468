#include <array>
#include <set>

#include <unistd.h>

#include <gtest/gtest.h>

#include "board/board_verbs.h"

namespace sim_board {
namespace {

class Verbs : public testing::Test {
protected:
    std::string run(std::string_view line) { return execute_on_board(board, line); }
    /** Whether the expander can be opened and read. */
    std::string access(int address)
    {
        const int fd = board.i2c().open(address);
        if (fd < 0) {
            return "not opened";
        }
        const bool read = board.i2c().read_register8(fd, 0x00) >= 0;
        ::close(fd);
        return read ? "read" : "not acknowledged";
    }
    Board board{kBenchtopWiring, Clock::Mode::kManual};
};

TEST_F(Verbs, BoardPrintsItsState)
{
    EXPECT_TRUE(run("board").starts_with("ok\nboard                             benchtop\nRF output"));
    EXPECT_TRUE(run(" \tboard \r").starts_with("ok\n"));
    EXPECT_EQ(run("board now"), "error 'board' expected\n");
}

TEST_F(Verbs, AChipCanBeAbsentSilentAndRepaired)
{
    EXPECT_EQ(access(0x20), "read");
    EXPECT_EQ(run("i2c 0x20 nack"), "ok\n");
    EXPECT_EQ(access(0x20), "not acknowledged");
    EXPECT_EQ(run("i2c 0x20 absent"), "ok\n");
    EXPECT_EQ(access(0x20), "not opened");
    EXPECT_EQ(run("i2c 0X20 nack"), "ok\n");
    EXPECT_EQ(access(0x20), "not acknowledged");
    EXPECT_EQ(access(0x24), "read");
    EXPECT_EQ(run("i2c 32 ok"), "ok\n");
    EXPECT_EQ(access(0x20), "read");
}

TEST_F(Verbs, AChipKeepsItsRegistersWhileItFails)
{
    const int fd = board.i2c().open(0x24);
    board.i2c().write_register8(fd, 0x14, 0x5a);
    run("i2c 0x24 absent");
    EXPECT_EQ(board.i2c().read_register8(fd, 0x14), -1);
    run("i2c 0x24 ok");
    EXPECT_EQ(board.i2c().read_register8(fd, 0x14), 0x5a);
    ::close(fd);
}

TEST_F(Verbs, I2cWithoutArgumentsListsTheChips)
{
    EXPECT_EQ(run("i2c"), "ok\n0x20  ok\n0x24  ok\n0x34  ok\n");
    run("i2c 0x20 absent");
    run("i2c 0x24 nack");
    EXPECT_EQ(run("i2c"), "ok\n0x20  absent\n0x24  nack\n0x34  ok\n");
}

TEST_F(Verbs, BadAddressesAndFaultsAreRefused)
{
    EXPECT_EQ(run("i2c 0x21 absent"), "error no chip is at 0x21; 'i2c' lists them\n");
    for (const char* address : {"0x80", "128", "-1", "0x", "20h", "0x20x", "absent"}) {
        EXPECT_EQ(run(std::string("i2c ") + address + " absent"),
                  std::string("error an I2C address from 0x00 to 0x7f expected, not '") + address + "'\n");
    }
    EXPECT_EQ(run("i2c 0x20"), "error 'absent', 'nack' or 'ok' expected\n");
    EXPECT_EQ(run("i2c 0x20 broken"), "error 'absent', 'nack' or 'ok' expected, not 'broken'\n");
    EXPECT_EQ(run("i2c 0x20 ok 1"), "error 'i2c [ADDRESS absent|nack|ok]' expected\n");
    EXPECT_EQ(access(0x20), "read");
}

TEST_F(Verbs, ThePowerButtonIsPushedHeldAndReleased)
{
    EXPECT_EQ(run("power-button press"), "ok\n");
    EXPECT_TRUE(board.power_button_pressed());
    EXPECT_EQ(run("power-button release"), "ok\n");
    EXPECT_FALSE(board.power_button_pressed());
    EXPECT_EQ(run("power-button press"), "ok\n");
    EXPECT_EQ(run("power-button"), "ok\n");
    EXPECT_FALSE(board.power_button_pressed());
    EXPECT_EQ(run("power-button hold"), "error 'press' or 'release' expected, not 'hold'\n");
    EXPECT_EQ(run("power-button press 1"), "error 'power-button [press|release]' expected\n");
}

TEST_F(Verbs, APushReachesTheInterruptPin)
{
    // As the controller arms it: line 0x20 of port B against 1, INTB through an inverter to pin 2.
    Mcp23017& expander = board.expander(0x20);
    for (const uint8_t reg : std::array<uint8_t, 3>{0x07, 0x09, 0x05}) {
        expander.write(std::array<uint8_t, 2>{reg, 0x20});
    }
    ASSERT_EQ(board.gpio().level(2), 0);
    run("power-button press");
    EXPECT_EQ(board.gpio().level(2), 1);
}

TEST_F(Verbs, UnknownVerbsAreRefused)
{
    EXPECT_EQ(run(""), "error a verb expected; 'help' lists them\n");
    EXPECT_EQ(run("  "), "error a verb expected; 'help' lists them\n");
    EXPECT_EQ(run("Board"), "error unknown verb 'Board'; 'help' lists them\n");
    EXPECT_EQ(run("help me"), "error 'help' expected\n");
}

TEST_F(Verbs, HelpListsEachVerbWithItsArguments)
{
    const std::string help = run("help");
    EXPECT_TRUE(help.starts_with("ok\n"));
    for (const char* line : {"board                             the state of relays",
                             "i2c [ADDRESS absent|nack|ok]      makes a chip fail",
                             "power-button [press|release]      presses"}) {
        EXPECT_NE(help.find(std::string("\n") + line), std::string::npos) << help;
    }
}

class PortableVerbs : public testing::Test {
protected:
    std::string run(std::string_view line) { return execute_on_board(board, line); }
    int charge() const { return board.battery()->word(SmartBattery::kRelativeStateOfCharge); }
    int current() const { return static_cast<int16_t>(board.battery()->word(SmartBattery::kCurrent)); }
    mutable Board board{kPortableWiring, Clock::Mode::kManual};
};

TEST_F(PortableVerbs, SettingTheChargeKeepsTheBatteryChargingOrDraining)
{
    EXPECT_EQ(run("battery 35"), "ok\n");
    EXPECT_EQ(charge(), 35);
    EXPECT_GT(current(), 0);
    EXPECT_EQ(run("battery 0 discharging"), "ok\n");
    EXPECT_EQ(charge(), 0);
    EXPECT_EQ(run("battery 100"), "ok\n");
    EXPECT_EQ(charge(), 100);
    EXPECT_LT(current(), 0);
    EXPECT_EQ(run("battery 99 charging"), "ok\n");
    EXPECT_GT(current(), 0);
}

TEST_F(PortableVerbs, ABatteryIsTakenOutAndPutIn)
{
    EXPECT_EQ(run("battery 60 absent"), "ok\n");
    EXPECT_FALSE(board.battery()->fitted());
    EXPECT_EQ(run("battery 60"), "ok\n");
    EXPECT_TRUE(board.battery()->fitted());
    EXPECT_EQ(charge(), 60);
}

TEST_F(PortableVerbs, TheChargerFillsTheBatteryAndWithoutItTheBatteryDrains)
{
    run("battery 50");
    EXPECT_EQ(run("charger off"), "ok\n");
    board.clock().advance(400'000'000); // at 1500 of 6600 mA h a percent is drained in 158.4 s
    EXPECT_EQ(charge(), 47);
    EXPECT_EQ(run("charger on"), "ok\n");
    EXPECT_GT(current(), 0);
}

TEST_F(PortableVerbs, BadWordsForTheBatteryAreRefusedAndChangeNothing)
{
    run("battery 35 discharging");
    for (const char* charge : {"-1", "101", "35%", "3.5", "full", "99999999999"}) {
        EXPECT_EQ(run(std::string("battery ") + charge + " charging"),
                  std::string("error a charge from 0 to 100 percent expected, not '") + charge + "'\n");
    }
    EXPECT_EQ(run("battery 40 gone"), "error 'charging', 'discharging' or 'absent' expected, not 'gone'\n");
    EXPECT_EQ(run("battery"), "error 'battery PERCENT [charging|discharging|absent]' expected\n");
    EXPECT_EQ(run("battery 40 charging 1"),
              "error 'battery PERCENT [charging|discharging|absent]' expected\n");
    EXPECT_EQ(run("charger"), "error 'charger on|off' expected\n");
    EXPECT_EQ(run("charger in"), "error 'on' or 'off' expected, not 'in'\n");
    EXPECT_EQ(charge(), 35);
    EXPECT_LT(current(), 0);
    EXPECT_TRUE(board.battery()->fitted());
}

TEST_F(PortableVerbs, APortableHasNoKeys)
{
    EXPECT_EQ(run("key 0 0"), "error a portable board has nothing for 'key'\n");
    EXPECT_EQ(run("help").find("\nkey "), std::string::npos);
}

TEST_F(Verbs, ABenchtopHasNoBattery)
{
    EXPECT_EQ(run("battery 50"), "error a benchtop board has nothing for 'battery'\n");
    EXPECT_EQ(run("charger on"), "error a benchtop board has nothing for 'charger'\n");
    EXPECT_EQ(run("help").find("\nbattery "), std::string::npos);
}

TEST_F(Verbs, AKeyIsPushedHeldAndReleased)
{
    Tca8418& keypad = *board.keypad();
    // As the controller sets it up: all keys in the matrix, events enabled.
    for (const auto& [reg, value] : {std::pair{0x1d, 0x3f}, {0x1e, 0xff}, {0x1f, 0x03}, {0x01, 0x01}}) {
        keypad.write(std::array{static_cast<uint8_t>(reg), static_cast<uint8_t>(value)});
    }
    const auto next_event = [&] {
        uint8_t event[1];
        keypad.write(std::array<uint8_t, 1>{Tca8418::kKeyEventA});
        keypad.read(event);
        return int{event[0]};
    };
    EXPECT_EQ(run("key 3 2"), "ok\n");
    EXPECT_EQ(next_event(), 0x80 | 33);
    EXPECT_EQ(next_event(), 33);
    EXPECT_EQ(run("key 5 9 press"), "ok\n");
    EXPECT_TRUE(keypad.is_held(5, 9));
    EXPECT_EQ(run("key 5 9 press"), "ok\n");
    EXPECT_EQ(next_event(), 0x80 | 60);
    EXPECT_EQ(next_event(), 0);
    EXPECT_EQ(run("key 5 9 release"), "ok\n");
    EXPECT_FALSE(keypad.is_held(5, 9));
    EXPECT_EQ(next_event(), 60);
    EXPECT_EQ(run("key 5 9 release"), "ok\n");
    EXPECT_EQ(next_event(), 0);
}

TEST_F(Verbs, AKeyOutsideTheFrontPanelIsRefused)
{
    for (const char* row : {"6", "-1", "x", "0x1"}) {
        EXPECT_EQ(run(std::string("key ") + row + " 0"),
                  std::string("error a row from 0 to 5 expected, not '") + row + "'\n");
    }
    for (const char* column : {"10", "-1", "1a"}) {
        EXPECT_EQ(run(std::string("key 0 ") + column),
                  std::string("error a column from 0 to 9 expected, not '") + column + "'\n");
    }
    EXPECT_EQ(run("key 0 0 hold"), "error 'press' or 'release' expected, not 'hold'\n");
    EXPECT_EQ(run("key 0"), "error 'key ROW COLUMN [press|release]' expected\n");
    EXPECT_EQ(run("key 0 0 press 1"), "error 'key ROW COLUMN [press|release]' expected\n");
    EXPECT_FALSE(board.keypad()->is_held(0, 0));
}

TEST(VerbTables, NamesAreUnique)
{
    std::set<std::string_view> names;
    for (const auto table : all_verbs()) {
        for (const BoardVerb& verb : table) {
            EXPECT_TRUE(names.insert(verb.name).second) << verb.name;
            EXPECT_LE(verb.least_words, verb.most_words) << verb.name;
            EXPECT_NE(verb.run, nullptr) << verb.name;
        }
    }
}

} // namespace
} // namespace sim_board
