// The channel records in shared memory, as another program reads them.
#include <algorithm>
#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "orvan_db.h"

using namespace orvan_test;

namespace {

size_t rows(const std::string& table)
{
    return static_cast<size_t>(std::count(table.begin(), table.end(), '\n'));
}

} // namespace

TEST(Records, StartFromTheFactorySetupForEveryChannelOfTheModel)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({"--model", "OVX3652B"});
    EXPECT_TRUE(std::filesystem::exists(instrument.state() / "halde/json/ch0.json"));
    EXPECT_EQ(rows(orvan_db(instrument, {}).output), 2U * 144U);
    for (int channel = 1; channel <= 2; ++channel) {
        EXPECT_EQ(element(instrument, channel, "freq"), "1000000000");
        EXPECT_EQ(element(instrument, channel, "pwr"), "5");
        EXPECT_EQ(element(instrument, channel, "trg_src"), "\"EXTernal\"");
        EXPECT_EQ(element(instrument, channel, "rf_out"), "OFF");
    }
    const Outcome third = orvan_db(instrument, {"--channel", "3"});
    EXPECT_EQ(third.status, 1);
    EXPECT_EQ(third.output, "orvan-db: channel 3 is not fitted: the instrument has 2\n");
}

TEST(Records, HoldWhatEachModuleReports)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    for (int channel = 1; channel <= 4; ++channel) {
        EXPECT_EQ(element(instrument, channel, "fpga"), "\"1.0.7\"");
        EXPECT_EQ(element(instrument, channel, "scpi"), "\"1999.0\"");
    }
}

TEST(Records, FollowTheTrafficOfTheSelectedChannel)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    Client client = instrument.client();
    EXPECT_EQ(client.ask(":FREQ 2500000000;:POW -12.5;:TRIG:EDG NEGative;:LIST:STAT OFF"), "+OK\r\n");
    EXPECT_EQ(element(instrument, 1, "freq"), "2500000000");
    EXPECT_EQ(element(instrument, 1, "pwr"), "-12.5");
    EXPECT_EQ(element(instrument, 1, "trg_edge"), "\"NEGative\"");
    EXPECT_EQ(element(instrument, 2, "freq"), "1000000000");
}

TEST(Records, AParameterWithAUnitIsMirroredCorrectlyByTheNextQuery)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    Client client = instrument.client();
    client.ask(":FREQ 3GHz");
    EXPECT_EQ(element(instrument, 1, "freq"), "3");
    EXPECT_EQ(client.ask(":FREQ?"), "3000000000;+OK\r\n");
    EXPECT_EQ(element(instrument, 1, "freq"), "3000000000");
}

TEST(Records, ANumberWithAnExponentIsMirroredAsTheModuleWritesIt)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    EXPECT_EQ(instrument.client().ask(":PULS:WIDT 5us;:PULS:WIDT?"), "5.0E-06;+OK\r\n");
    EXPECT_EQ(element(instrument, 1, "puls_width"), "5e-06");
}

TEST(Records, ARefusedSetIsNotMirrored)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    EXPECT_NE(instrument.client().ask(":FREQ 99GHz").find("-ERR"), std::string::npos);
    EXPECT_EQ(element(instrument, 1, "freq"), "1000000000");
}

TEST(Records, AWatchSeesEachChange)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    Client client = instrument.client();
    const std::filesystem::path seen = instrument.state() / "log/watch";
    const std::string command = program("orvan-db") +
                                " --watch --json --channel 1 --tag freq --interval 5 >" + seen.string() +
                                " & echo $! >" + seen.string() + ".pid";
    ASSERT_EQ(instrument.exec("controller", {"sh", "-c", command}).status, 0);
    const auto wait_for = [&](const std::string& line) {
        for (int i = 0; i < 1000; ++i) {
            std::ostringstream text;
            text << std::ifstream(seen).rdbuf();
            if (text.str().find(line) != std::string::npos) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    };
    EXPECT_TRUE(wait_for("{\"channel\":1,\"tag\":\"ODT_FREQ\",\"value\":1000000000}\n"));
    client.ask(":FREQ 2000000");
    EXPECT_TRUE(wait_for("\"value\":2000000}\n"));
    client.ask(":FREQ 3000000");
    EXPECT_TRUE(wait_for("\"value\":3000000}\n"));
    EXPECT_EQ(instrument.exec("controller", {"sh", "-c", "kill $(cat " + seen.string() + ".pid)"}).status, 0);
}

TEST(Records, ThereIsNoInstrumentWithoutTheService)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    const Outcome outcome =
        instrument.exec("controller", {"sh", "-c", "rm /dev/shm/orvanData && " + program("orvan-db")});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "orvan-db: no instrument: no service keeps channel records here\n");
}

TEST(Records, ARebootRestoresTheFactorySetup)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    instrument.client().ask(":FREQ 2000000");
    ASSERT_EQ(element(instrument, 1, "freq"), "2000000");
    ASSERT_TRUE(instrument.reboot());
    EXPECT_EQ(element(instrument, 1, "freq"), "1000000000");
}

TEST(Records, ASetupInTheStateFolderIsKept)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    std::ofstream(instrument.state() / "halde/json/ch0.json") << R"({"ANALOGOUTPUT": {"Frequency": 77}})";
    ASSERT_TRUE(instrument.reboot());
    EXPECT_EQ(element(instrument, 1, "freq"), "77");
}
