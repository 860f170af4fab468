// Situations that must not lock the users of an instrument out.
#include <cstdlib>

#include <sys/resource.h>

#include <gtest/gtest.h>

#include "instrument.h"
#include "maintenance_frame.h"
#include "support/maintenance_client.h"

using namespace orvan_test;

namespace {

class LockedOut : public testing::Test {
protected:
    bool logged(const std::string& text) const
    {
        return instrument->service_log().find(text) != std::string::npos;
    }
    std::optional<Instrument> instrument;
};

class LockedOutByAPort : public LockedOut, public testing::WithParamInterface<const char*> {};
INSTANTIATE_TEST_SUITE_P(Ports, LockedOutByAPort, testing::Values("0", "65536"));

} // namespace

TEST_P(LockedOutByAPort, ThatIsInvalidServesTheUsualOne)
{
    ORVAN_NEEDS_SANDBOX();
    instrument.emplace(std::vector<std::string>{"--model", "OVX3651P"});
    instrument->client().send(std::string(":SYST:COMM:LAN:PORT ") + GetParam() + "\n");
    ASSERT_TRUE(instrument->wait_for_output("the service is ready again"));
    EXPECT_TRUE(logged("SCPI port 0 of the settings is not set; using 5025 instead\n"));
    const Outcome outcome =
        instrument->exec("lan", {"lxi", "scpi", "-a", "10.0.0.2", "-p", "5025", "-r", "*IDN?"});
    EXPECT_NE(outcome.output.find(",OVX3651P,"), std::string::npos) << outcome.output;
    // The selected channel's temperature is polled there, too.
    instrument->clear_requests(1);
    EXPECT_TRUE(eventually([&] {
        return instrument->ctl({"module", "1", "log"}).output.find(":SYST:TEMP?") != std::string::npos;
    }));
}

TEST_F(LockedOut, ByNoWebPageThatSpeaksScpi)
{
    ORVAN_NEEDS_SANDBOX();
    instrument.emplace(std::vector<std::string>{"--model", "OVX3651P"});
    instrument->clear_requests(1);
    Client page = instrument->client();
    page.send("POST / HTTP/1.1\r\nHost: 127.0.0.1:5025\r\nAccept: */*\r\nContent-Length: 9\r\n"
              "Content-Type: application/x-www-form-urlencoded\r\n\r\n:OUTP ON\n");
    EXPECT_EQ(page.read_line(), "");
    EXPECT_TRUE(logged(": closed, its first line is an HTTP request line\n"));
    EXPECT_EQ(instrument->client().ask(":OUTP?"), "0;+OK\r\n");
    EXPECT_EQ(instrument->requests(1), std::vector<std::string>{":OUTP?\\r\\n"});
}

// Each frame of the maintenance protocol takes a descriptor for each module and keeps it.
TEST_F(LockedOut, WithoutDescriptorsTheServiceEndsAndLogsWhy)
{
    ORVAN_NEEDS_SANDBOX();
    instrument.emplace();
    const rlimit few{100, 100};
    ASSERT_EQ(::prlimit(instrument->service(), RLIMIT_NOFILE, &few, nullptr), 0);
    std::vector<std::string> command{program("orvan-datagram"), "10.0.0.2", "7502", "1", ""};
    std::string& hex = command.back();
    for (const char byte : FrameHeader{"HEID", 1, 0, std::string(6, '\xff')}.bytes()) {
        char text[3];
        std::snprintf(text, sizeof text, "%02x", static_cast<unsigned>(static_cast<uint8_t>(byte)));
        hex += text;
    }
    EXPECT_TRUE(eventually([&] {
        instrument->exec("lan", command); // with no reply to the last one
        return logged("[CUdpServer] the process ends with exit code 1: no socket to module ") &&
               logged(": Too many open files; every frame leaves one open\n");
    }));
    EXPECT_TRUE(instrument->wait_for_output("ended with status 1"));
}

TEST_F(LockedOut, ByACommandThatHangsIsShownInTheStatus)
{
    ORVAN_NEEDS_SANDBOX();
    ::setenv("ORVAN_HANG_LIMIT", "2", 1);
    instrument.emplace(std::vector<std::string>{"--model", "OVX3651P"});
    const std::string service = "\nservice   ready, process " + std::to_string(instrument->service());
    EXPECT_NE(instrument->ctl({"status"}).output.find(service + "\n"), std::string::npos);
    std::string line = "*IDN?";
    for (int i = 1; i < 50; ++i) {
        line += ";*IDN?";
    }
    Client client = instrument->client();
    ASSERT_TRUE(client.send(line + "\n"));
    std::string status;
    EXPECT_TRUE(eventually([&] {
        status = instrument->ctl({"status"}).output;
        return status.find(service + ", client ") != std::string::npos;
    })) << status;
    EXPECT_NE(status.find(" hangs: no progress for 2 s in \"*IDN?;*IDN?;"), std::string::npos) << status;
}

TEST_F(LockedOut, ByACommandThatHangsTheServiceIsStartedAgain)
{
    ORVAN_NEEDS_SANDBOX();
    ::setenv("ORVAN_HANG_LIMIT", "1", 1);
    instrument.emplace(std::vector<std::string>{"--model", "OVX3651P", "--watchdog", "4", "--restart"});
    std::string line = "*IDN?";
    for (int i = 1; i < 50; ++i) {
        line += ";*IDN?";
    }
    Client client = instrument->client();
    ASSERT_TRUE(client.send(line + "\n"));
    EXPECT_TRUE(instrument->wait_for_output("the service has not fed its watchdog for 4 s; "));
    EXPECT_TRUE(instrument->wait_for_output("the service is ready again"));
    EXPECT_TRUE(logged(" hangs: no progress for 1 s in \"*IDN?;*IDN?;"));
    EXPECT_EQ(instrument->client().ask(":NO:SUCH:HEADER"), "-ERR -113, \"Undefined header\";+OK\r\n");
}

// A module that is silent for as long as the status is watched.
TEST_F(LockedOut, ByACommandThatHangsForAWhileIsShownInTheStatusUntilItReturns)
{
    ORVAN_NEEDS_SANDBOX();
    ::setenv("ORVAN_HANG_LIMIT", "2", 1);
    instrument.emplace(std::vector<std::string>{"--model", "OVX3651P"});
    ASSERT_EQ(instrument->ctl({"module", "1", "silent"}).status, 0);
    Client client = instrument->client();
    ASSERT_TRUE(client.send(":FREQ?\n"));
    EXPECT_TRUE(eventually([&] {
        return instrument->ctl({"status"}).output.find(" hangs: no progress for 2 s in \":FREQ?\"\n") !=
               std::string::npos;
    }));
    EXPECT_EQ(client.read_line(), "-ERR Receive timeout;+OK\r\n");
    ASSERT_EQ(instrument->ctl({"module", "1", "up"}).status, 0);
    EXPECT_TRUE(
        eventually([&] { return instrument->ctl({"status"}).output.find(" hangs: ") == std::string::npos; }));
    EXPECT_TRUE(logged(" resumed after "));
}
