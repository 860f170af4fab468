// Keys and power button, from the chips of the board to the service's action.
#include <csignal>
#include <optional>

#include <gtest/gtest.h>

#include "instrument.h"

using namespace orvan_test;

namespace {

bool board_shows(const Instrument& instrument, const std::string& line)
{
    return instrument.ctl({"board"}).output.find("\n" + line + "\n") != std::string::npos;
}

bool service_is(const Instrument& instrument, const std::string& state)
{
    return instrument.ctl({"status"}).output.find("\nservice   " + state + ", process ") != std::string::npos;
}

std::string platform_of(const testing::TestParamInfo<const char*>& tested)
{
    const std::string model = tested.param;
    return model.ends_with('P') ? "Portable" : model.ends_with('B') ? "Benchtop" : "Ksr7000";
}

class Keys : public testing::Test {
protected:
    void push(const char* row, const char* column) const
    {
        EXPECT_EQ(instrument->ctl({"key", row, column}).output, "");
    }
    bool logged(const std::string& text) const
    {
        return instrument->service_log().find("front panel: " + text + "\n") != std::string::npos;
    }
    std::optional<Instrument> instrument;
};

class KeysOf : public Keys, public testing::WithParamInterface<const char*> {};
INSTANTIATE_TEST_SUITE_P(Models, KeysOf, testing::Values("OVX3652B", "KSR-7036"), platform_of);

TEST_P(KeysOf, TheOutputFollowsItsKeys)
{
    ORVAN_NEEDS_SANDBOX();
    instrument.emplace(std::vector<std::string>{"--model", GetParam()});
    Client client = instrument->client();
    EXPECT_EQ(client.ask(":OUTP?"), "0;+OK\r\n");
    push("1", "0");
    EXPECT_TRUE(eventually([&] { return client.ask(":OUTP?") == "1;+OK\r\n"; }));
    push("1", "1");
    EXPECT_TRUE(eventually([&] { return client.ask(":OUTP?") == "0;+OK\r\n"; }));
    EXPECT_TRUE(logged("RF on"));
    EXPECT_TRUE(logged("RF off"));
}

TEST_F(Keys, SwitchTheRelayOfTheSelectedChannel)
{
    ORVAN_NEEDS_SANDBOX();
    instrument.emplace();
    Client client = instrument->client();
    EXPECT_TRUE(board_shows(*instrument, "RF output, slot 2                 off"));
    push("0", "1");
    push("1", "0");
    EXPECT_TRUE(eventually([&] { return board_shows(*instrument, "RF output, slot 2                 on"); }));
    EXPECT_EQ(client.ask(":INST?;:OUTP?"), "2;1;+OK\r\n");
    EXPECT_TRUE(board_shows(*instrument, "RF output, slot 3                 off"));
    push("1", "1");
    EXPECT_TRUE(
        eventually([&] { return board_shows(*instrument, "RF output, slot 2                 off"); }));
}

TEST_F(Keys, PresetResetsTheInstrument)
{
    ORVAN_NEEDS_SANDBOX();
    instrument.emplace(std::vector<std::string>{"--model", "OVX3652B"});
    Client client = instrument->client();
    const std::string preset = client.ask("*RST;:FREQ?");
    EXPECT_EQ(client.ask(":FREQ 1234MHz;:FREQ?"), "1234000000;+OK\r\n");
    push("2", "0");
    EXPECT_TRUE(eventually([&] { return client.ask(":FREQ?") == preset; })) << preset;
}

TEST_F(Keys, InvalidAreReportedAndHeldAreNotRepeated)
{
    ORVAN_NEEDS_SANDBOX();
    instrument.emplace(std::vector<std::string>{"--model", "OVX3652B", "--log-level", "info"});
    EXPECT_EQ(instrument->ctl({"key", "5", "9", "press"}).output, "");
    EXPECT_TRUE(board_shows(*instrument, "keys held, row and column         5 9"));
    EXPECT_EQ(instrument->ctl({"key", "5", "9", "press"}).output, "");
    EXPECT_EQ(instrument->ctl({"key", "4", "7"}).output, "");
    EXPECT_TRUE(eventually([&] { return logged("key 0x74 is not in use"); }));
    const std::string log = instrument->service_log();
    const std::string held = "key 0x95 is not in use\n";
    EXPECT_NE(log.find(held), std::string::npos);
    EXPECT_EQ(log.find(held), log.rfind(held));
    // Columns 8 and 9 report their release as well.
    EXPECT_EQ(instrument->ctl({"key", "5", "9", "release"}).output, "");
    EXPECT_TRUE(eventually([&] { return instrument->service_log().rfind(held) > log.size(); }));
}

TEST_F(Keys, OfMissingChannelsAreIgnored)
{
    ORVAN_NEEDS_SANDBOX();
    instrument.emplace(std::vector<std::string>{"--model", "OVX3652B", "--log-level", "info"});
    push("0", "1");
    push("0", "2");
    EXPECT_TRUE(eventually([&] { return logged("key 0x20 is not in use"); }));
    EXPECT_EQ(instrument->client().ask(":INST?"), "2;+OK\r\n");
}

TEST_F(Keys, WithoutAKeypadTheInstrumentServes)
{
    ORVAN_NEEDS_SANDBOX();
    instrument.emplace(std::vector<std::string>{"--model", "OVX3652B", "--board", "i2c 0x34 absent"});
    push("1", "0");
    EXPECT_EQ(instrument->client().ask(":OUTP?"), "0;+OK\r\n");
}

class PowerButtonOf : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(Models, PowerButtonOf, testing::Values("OVX3651P", "OVX3652B", "KSR-7036"),
                         platform_of);

TEST_P(PowerButtonOf, EndsTheServiceCleanlyOnceItIsReleased)
{
    ORVAN_NEEDS_SANDBOX();
    Instrument instrument({"--model", GetParam()});
    Client client = instrument.client();
    EXPECT_NE(client.ask("*IDN?"), "");
    EXPECT_EQ(instrument.ctl({"power-button", "press"}).output, "");
    EXPECT_TRUE(eventually([&] { return service_is(instrument, "ending"); }));
    EXPECT_EQ(client.read_line(), ""); // closed
    EXPECT_NE(instrument.service_log().find("power button pressed\n"), std::string::npos);
    EXPECT_EQ(instrument.ctl({"power-button", "release"}).output, "");
    EXPECT_EQ(instrument.wait_for_end(), 0);
    EXPECT_NE(instrument.service_log().find("ending with 1 clients\n"), std::string::npos);
}

TEST(PowerButton, ThatIsNotReleasedDelaysTheEndByTwentySecondsAtMost)
{
    ORVAN_NEEDS_SANDBOX();
    Instrument instrument({"--model", "OVX3651P"});
    EXPECT_EQ(instrument.ctl({"power-button", "press"}).output, "");
    EXPECT_TRUE(eventually([&] { return service_is(instrument, "ending"); }));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(instrument.stop(SIGTERM), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

} // namespace
