// The end of the service in any state, as seen from outside.
#include <csignal>
#include <regex>

#include <gtest/gtest.h>

#include "instrument.h"

using namespace orvan_test;
using Clock = std::chrono::steady_clock;

namespace {

// More than the 2048 bytes of a text reply, which is never sent.
std::string endless_reply()
{
    std::string line = "*IDN?";
    for (int i = 1; i < 50; ++i) {
        line += ";*IDN?";
    }
    return line;
}

/** The launcher exits with 0 only when the service has ended by itself and cleanly. */
void expect_end_during_a_command(Instrument& instrument)
{
    EXPECT_EQ(instrument.wait_for_end(), 0) << instrument.output();
    EXPECT_NE(instrument.output().find("the service has ended in order, as by its power button\n"),
              std::string::npos)
        << instrument.output();
    EXPECT_NE(instrument.service_log().find("ended during a command\n"), std::string::npos);
}

} // namespace

TEST(ServiceEnd, APowerButtonThatIsHeldEndsAnEndlessReply)
{
    ORVAN_NEEDS_SANDBOX();
    Instrument instrument({"--model", "OVX3651P", "--log-level", "info"});
    Client client = instrument.client();
    ASSERT_TRUE(client.send(endless_reply() + "\n"));
    ASSERT_TRUE(
        eventually([&] { return instrument.service_log().find("sending \"*IDN?") != std::string::npos; }));
    EXPECT_EQ(instrument.ctl({"power-button", "press"}).output, "");
    expect_end_during_a_command(instrument);
}

// The poll queries the selected channel as a client of the service.
TEST(ServiceEnd, AWaitingTemperaturePollIsNoError)
{
    ORVAN_NEEDS_SANDBOX();
    Instrument instrument({"--model", "OVX3651P"});
    ASSERT_EQ(instrument.ctl({"module", "1", "silent"}).status, 0);
    Client client = instrument.client();
    ASSERT_TRUE(client.send(":FREQ?\n"));
    ASSERT_TRUE(eventually([&] { return !instrument.requests(1).empty(); }));
    // An established connection of 127.0.0.1 to port 5025 of 127.0.0.1.
    static const std::regex poll(" 0100007F:13A1 0100007F:[0-9A-F]{4} 01 ");
    ASSERT_TRUE(eventually([&] {
        return std::regex_search(instrument.exec("controller", {"cat", "/proc/net/tcp"}).output, poll);
    }));
    EXPECT_EQ(instrument.ctl({"power-button", "press"}).output, "");
    EXPECT_EQ(client.read_line(), "-ERR Receive timeout;+OK\r\n");
    EXPECT_EQ(client.read_line(), ""); // closed
    EXPECT_EQ(instrument.ctl({"power-button", "release"}).output, "");
    EXPECT_EQ(instrument.wait_for_end(), 0);
    const std::string log = instrument.service_log();
    EXPECT_EQ(log.find("invalid input"), std::string::npos) << log;
    EXPECT_EQ(log.find("Temperature thread exception"), std::string::npos) << log;
}

TEST(ServiceEnd, SigtermEndsALineOfRequestsToASilentModule)
{
    ORVAN_NEEDS_SANDBOX();
    Instrument instrument({"--model", "OVX3652B"});
    const pid_t service = instrument.service();
    ASSERT_EQ(instrument.ctl({"module", "1", "silent"}).status, 0);
    Client client = instrument.client();
    // Seven requests, 10 s each.
    std::string line = ":FREQ?";
    for (int i = 1; i < 7; ++i) {
        line += ";*IDN?;:FREQ?";
    }
    ASSERT_TRUE(client.send(line + "\n"));
    ASSERT_TRUE(eventually([&] { return !instrument.requests(1).empty(); }));
    const auto begin = Clock::now();
    ASSERT_EQ(::kill(service, SIGTERM), 0);
    expect_end_during_a_command(instrument);
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(45)) << "its time limit is 15 s";
}
