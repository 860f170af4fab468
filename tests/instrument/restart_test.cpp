// A failed service is restarted, as its unit does on an instrument.
#include <csignal>
#include <regex>
#include <string>
#include <vector>

#include <sys/resource.h>

#include <gtest/gtest.h>

#include "instrument.h"
#include "support/hex.h"
#include "support/maintenance_client.h"

using namespace orvan_test;

namespace {

pid_t service_of(const Instrument& instrument)
{
    const std::string status = instrument.ctl({"status"}).output;
    std::smatch match;
    return std::regex_search(status, match, std::regex("service   ready, process ([0-9]+)"))
               ? std::stoi(match[1])
               : -1;
}

} // namespace

TEST(Restart, OfAServiceThatWasKilledServesTheClientsThatConnectMeanwhile)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({"--restart"});
    const std::string identity = instrument.client().ask("*IDN?");
    EXPECT_EQ(instrument.client().ask(":SYST:COMM:LAN:HOST \"of-this-life\""), "+OK\r\n");
    const pid_t before = service_of(instrument);
    ASSERT_GT(before, 0);
    ::kill(before, SIGKILL);
    EXPECT_TRUE(instrument.wait_for_output("the service ended with signal 9 (Killed); see " +
                                           (instrument.state() / "log/service.log").string() +
                                           "; starting it again in 0.25 s\n"));
    EXPECT_EQ(instrument.client().ask("*IDN?", std::chrono::seconds(20)), identity);
    EXPECT_NE(instrument.client().ask(":SYST:COMM:LAN:HOST?"), "of-this-life;+OK\r\n");
    EXPECT_TRUE(instrument.wait_for_output("the service is ready again\n"));
    EXPECT_NE(service_of(instrument), before);
    EXPECT_EQ(instrument.client().ask(":FREQ 2e9;:FREQ?"), "2000000000;+OK\r\n");
}

// Each search costs descriptors.
TEST(Restart, RecoversAnInstrumentThatWasSearchedForTooOften)
{
    ORVAN_NEEDS_SANDBOX();
    const rlimit few = {512, 512};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    const Instrument instrument({"--restart"});
    std::vector<std::string> command = {program("orvan-datagram"), "10.0.0.2", "7502", "0"};
    command.insert(command.end(), 300, hex_of(FrameHeader{"HEID", 1, 0, std::string(6, '\xff')}.bytes()));
    EXPECT_TRUE(eventually([&] {
        instrument.exec("lan", command);
        return instrument.output().find("the service ended with status 1; ") != std::string::npos;
    }));
    EXPECT_TRUE(instrument.wait_for_output("the service is ready again\n"));
    EXPECT_EQ(instrument.client().ask(":FREQ 2e9;:FREQ?", std::chrono::seconds(20)), "2000000000;+OK\r\n");
}
