// The service's board, controlled and inspected from outside.
#include <gtest/gtest.h>

#include "instrument.h"

using namespace orvan_test;

TEST(BoardControl, TheStateOfTheBoardIsShown)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({"--model", "OVX3651P"});
    const Outcome board = instrument.ctl({"board"});
    EXPECT_EQ(board.status, 0);
    EXPECT_TRUE(board.output.starts_with("board                             ")) << board.output;
    EXPECT_NE(board.output.find("\npower button                      released\n"), std::string::npos)
        << board.output;
    EXPECT_NE(board.output.find("\nexpander 0x20                     latch A 0x"), std::string::npos)
        << board.output;
}

TEST(BoardControl, AChipFailsUntilItIsRepairedOrTheServiceIsRestarted)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({"--model", "OVX3651P"});
    EXPECT_EQ(instrument.ctl({"i2c", "0x20", "nack"}).output, "");
    EXPECT_NE(
        instrument.ctl({"board"}).output.find("\ni2c 0x20                          acknowledges nothing\n"),
        std::string::npos);
    EXPECT_EQ(instrument.ctl({"i2c", "0x20", "ok"}).status, 0);
    EXPECT_EQ(instrument.ctl({"board"}).output.find("\ni2c 0x20"), std::string::npos);
    EXPECT_EQ(instrument.ctl({"i2c", "0x20", "absent"}).status, 0);
    EXPECT_NE(instrument.ctl({"i2c"}).output.find("0x20  absent\n"), std::string::npos);
    ASSERT_TRUE(instrument.reboot());
    EXPECT_NE(instrument.ctl({"i2c"}).output.find("0x20  ok\n"), std::string::npos);
}

TEST(BoardControl, BadWordsAreRefusedWithAMessage)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({"--model", "OVX3651P"});
    const auto refused = [&](const std::vector<std::string>& words) {
        const Outcome outcome = instrument.ctl(words);
        EXPECT_EQ(outcome.status, 1) << outcome.output;
        return outcome.output;
    };
    EXPECT_EQ(refused({"i2c", "0x7e", "absent"}), "orvan-sim: no chip is at 0x7e; 'i2c' lists them\n");
    EXPECT_EQ(refused({"i2c", "0x20", "broken"}),
              "orvan-sim: 'absent', 'nack' or 'ok' expected, not 'broken'\n");
    EXPECT_EQ(refused({"power-button", "smash"}), "orvan-sim: 'press' or 'release' expected, not 'smash'\n");
}

TEST(ModuleTemperature, IsHeldAndReleasedFromOutside)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({"--model", "OVX3652B"});
    Client client = instrument.client();
    EXPECT_EQ(instrument.ctl({"temp", "1", "71.5"}).status, 0);
    EXPECT_EQ(client.ask(":SYST:TEMP?"), "71.5;+OK\r\n");
    EXPECT_EQ(instrument.ctl({"temp", "1"}).output, "ok 71.5 held\n");
    EXPECT_EQ(instrument.ctl({"temp", "1", "47.999"}).status, 0);
    EXPECT_EQ(instrument.ctl({"temp", "1"}).output, "ok 47.999 held\n");
    EXPECT_EQ(instrument.ask_module(1, ":SYST:TEMP?"), "47.999;+OK");
    EXPECT_NE(instrument.ctl({"temp", "2"}).output.find(" drifting\n"), std::string::npos);
    EXPECT_EQ(instrument.ctl({"temp", "1", "hot"}).output,
              "orvan-sim: degrees Celsius, -273.15 to 1000, or \"auto\" expected\n");
    EXPECT_EQ(instrument.ctl({"temp", "1", "auto"}).status, 0);
    EXPECT_NE(client.ask(":SYST:TEMP?"), "71.5;+OK\r\n");
}

TEST(ModuleTemperature, IsNotPolledBeforeTheInstrumentAcceptsClients)
{
    ORVAN_NEEDS_SANDBOX();
    // A failed poll of the selected channel would stay in the built-in test's result; at this rate the half
    // minute between the polls is 3 ms.
    const Instrument instrument({"--clock-rate", "10000"});
    Client client = instrument.client();
    instrument.clear_requests(2);
    EXPECT_TRUE(eventually([&] {
        return instrument.ctl({"module", "2", "log"}).output.find(":SYST:TEMP?") != std::string::npos;
    })) << "once it serves, the clock is fast";
    EXPECT_EQ(client.ask("*TST?"), "0 Failures;+OK\r\n");
}
