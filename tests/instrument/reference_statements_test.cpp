// Statements of the SCPI reference that no dialogue can show.
#include <gtest/gtest.h>

#include "instrument.h"

using namespace orvan_test;

namespace {

/** The value of `name` in the board's state. */
std::string on_board(const Instrument& instrument, const std::string& name)
{
    const std::string board = instrument.ctl({"board"}).output;
    const size_t line = board.find("\n" + name + " ");
    if (line == std::string::npos) {
        return "not on the board";
    }
    const size_t value = board.find_first_not_of(' ', line + 1 + name.size());
    return board.substr(value, board.find('\n', value) - value);
}

std::string output_path(const Instrument& instrument, int channel)
{
    return on_board(instrument, "RF output, slot " + std::to_string(channel));
}

std::string modulation_path(const Instrument& instrument, int channel)
{
    return on_board(instrument, "modulation, slot " + std::to_string(channel));
}

constexpr const char* kOk = "+OK\r\n";

} // namespace

TEST(Statements, AResetSwitchesTheOutputPathLastRoutedAndTheOthersFollowAtTheirQuery)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    Client client = instrument.client();
    EXPECT_EQ(client.ask(":INST 1;:OUTP ON;:INST 2;:OUTP ON;:INST 3;:OUTP ON;:INST 2;:OUTP?"), "1;+OK\r\n");
    for (int channel = 1; channel <= 3; ++channel) {
        ASSERT_EQ(output_path(instrument, channel), "on") << channel;
    }

    EXPECT_EQ(client.ask("*RST"), kOk);
    EXPECT_EQ(output_path(instrument, 1), "on");
    EXPECT_EQ(output_path(instrument, 2), "off");
    EXPECT_EQ(output_path(instrument, 3), "on");

    EXPECT_EQ(client.ask(":INST 1;:OUTP?"), "0;+OK\r\n");
    EXPECT_EQ(output_path(instrument, 1), "off");
    EXPECT_EQ(output_path(instrument, 3), "on");
    EXPECT_EQ(client.ask(":INST 3;:OUTP?"), "0;+OK\r\n");
    EXPECT_EQ(output_path(instrument, 3), "off");
}

TEST(Statements, AResetSetsTheOutputPathLastRoutedToTheStateOfTheLastChannel)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    Client client = instrument.client();
    EXPECT_EQ(client.ask(":OUTP:REST:MODE AUTO;:INST 4;:OUTP OFF;:INST 1;:OUTP ON"), kOk);
    EXPECT_EQ(client.ask(":SYST:SET:STOR 1;:SYST:POW:SET 1"), kOk);
    EXPECT_EQ(client.ask("*RST"), kOk);
    EXPECT_EQ(instrument.ask_module(1, ":OUTP?"), "1;+OK");
    EXPECT_EQ(output_path(instrument, 1), "off");
    EXPECT_EQ(client.ask(":OUTP?"), "1;+OK\r\n");
    EXPECT_EQ(output_path(instrument, 1), "on");
}

TEST(Statements, ARecallLeavesTheOutputPathUntilItsQuery)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    Client client = instrument.client();
    EXPECT_EQ(client.ask(":OUTP ON;:SYST:SET:REC 0"), kOk);
    EXPECT_EQ(instrument.ask_module(1, ":OUTP?"), "0;+OK");
    EXPECT_EQ(output_path(instrument, 1), "on");
    EXPECT_EQ(client.ask(":OUTP?"), "0;+OK\r\n");
    EXPECT_EQ(output_path(instrument, 1), "off");
}

TEST(Statements, AResetAndARecallLeaveTheModulationRelays)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    Client client = instrument.client();
    for (const char* command : {"*RST", ":SYST:SET:REC 0"}) {
        EXPECT_EQ(client.ask(":FM:SOUR INT;:AM:SOUR INT"), kOk);
        const std::string internal = modulation_path(instrument, 1);
        EXPECT_EQ(client.ask(":AM:SOUR EXT"), kOk);
        const std::string external = modulation_path(instrument, 1);
        ASSERT_NE(external, internal);
        EXPECT_EQ(client.ask(command), kOk);
        EXPECT_EQ(instrument.ask_module(1, ":AM:SOUR?"), "INT;+OK") << command;
        EXPECT_EQ(modulation_path(instrument, 1), external) << command;
    }
}

TEST(Statements, ARestartResetsSelectionCouplingFanAndRestoreMode)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    const std::string state = ":INST?;:TRIG:COUP?;:SYST:FAN:MODE?;:OUTP:REST:MODE?";
    EXPECT_EQ(
        instrument.client().ask(":INST 2;:TRIG:COUP ALL;:SYST:FAN:MODE FIXED;:OUTP:REST:MODE AUTO;" + state),
        "2;ALL;FIXED;AUTO;+OK\r\n");
    ASSERT_TRUE(instrument.reboot());
    EXPECT_EQ(instrument.client().ask(state), "1;NONE;AUTO;MANUAL;+OK\r\n");
}

TEST(Statements, AnOutputPathThatCannotBeSwitchedIsAnErrorOnTheThirdPlatformOnly)
{
    ORVAN_NEEDS_SANDBOX();
    const std::string error = "-ERR -200, \"Execution error\";+OK\r\n";
    const struct {
        const char* model;
        std::string set;
        std::string query;
    } rows[] = {
        {"OVX3651B", kOk, "1;+OK\r\n"},
        {"OVX3651P", kOk, "1;+OK\r\n"},
        {"KSR-7036", error, "1;" + error},
    };
    for (const auto& [model, set, query] : rows) {
        const Instrument instrument({"--model", model});
        EXPECT_EQ(instrument.ctl({"i2c", "0x20", "nack"}).status, 0);
        Client client = instrument.client();
        EXPECT_EQ(client.ask(":OUTP ON"), set) << model;
        EXPECT_EQ(client.ask(":OUTP?"), query) << model;
    }
}

TEST(Statements, ASelfTestReportsAHotModuleWhileHotAndASilentOneFromThenOn)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({"--clock-rate", "30"});
    Client client = instrument.client();
    ASSERT_EQ(client.ask("*TST?"), "0 Failures;+OK\r\n");
    EXPECT_EQ(instrument.ctl({"module", "2", "refuse"}).status, 0);
    EXPECT_EQ(instrument.ctl({"temp", "3", "65"}).status, 0);
    EXPECT_TRUE(eventually([&] {
        return client.ask("*TST?") == "CBIT,TEMP test,Fail,4;CBIT,MODULES test,Fail,192;2 Failures;+OK\r\n";
    })) << client.ask("*TST?");
    EXPECT_EQ(instrument.ctl({"module", "2", "up"}).status, 0);
    EXPECT_EQ(instrument.ctl({"temp", "3", "64.9"}).status, 0);
    const std::string kept = "CBIT,MODULES test,Fail,192;1 Failures;+OK\r\n";
    EXPECT_TRUE(eventually([&] { return client.ask("*TST?") == kept; })) << client.ask("*TST?");
    EXPECT_EQ(client.ask("*RST;*CLS;*TST;*TST?"), kept);
}

TEST(Statements, ARefusedNetworkConfigurationIsNoErrorAndIsLogged)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({"--model", "OVX3651P"});
    Client client = instrument.client();
    EXPECT_EQ(client.ask(":SYST:COMM:LAN:IPAD \"1.2.3\";:SYST:COMM:LAN:DHCP OFF"), kOk);
    EXPECT_EQ(client.ask(":SYST:COMM:LAN:DHCP?"), "OFF;+OK\r\n");
    EXPECT_NE(instrument.service_log().find("Failed to apply static IP configuration."), std::string::npos);
}
