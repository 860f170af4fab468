// Debian's VXI-11 clients on the instrument's LAN: lxi-tools and PyVISA, as they come.
#include <regex>

#include <gtest/gtest.h>

#include "instrument.h"

using namespace orvan_test;

namespace {

constexpr const char* kIdentity = "Halde Electronics Ltd.,OVX3654B,100001,1.19.145";
constexpr const char* kAddress = "10.0.0.2";

Outcome lxi(const Instrument& instrument, std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), "lxi");
    return instrument.exec("lan", arguments);
}

Outcome lxi_scpi(const Instrument& instrument, const std::string& message)
{
    return lxi(instrument, {"scpi", "-t", "20", "-a", kAddress, message});
}

void expect_found(const Instrument& instrument)
{
    const Outcome outcome = lxi(instrument, {"discover", "-t", "2"});
    EXPECT_EQ(outcome.status, 0);
    const std::string line =
        std::string("  Found \"") + kIdentity + "\" on address " + kAddress + "\n\nFound 1 device \n";
    EXPECT_NE(outcome.output.find(line), std::string::npos) << outcome.output;
}

} // namespace

TEST(Vxi11Clients, DiscoverFindsTheInstrumentByBroadcastAlsoAfterAReboot)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    expect_found(instrument);
    ASSERT_TRUE(instrument.reboot());
    expect_found(instrument);
}

TEST(Vxi11Clients, AServiceThatFailedIsFoundOnceItIsRestarted)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({"--restart"});
    // It cannot remove its registration.
    ASSERT_EQ(::kill(instrument.service(), SIGKILL), 0);
    ASSERT_TRUE(instrument.wait_for_output("the service is ready again\n"));
    EXPECT_EQ(lxi_scpi(instrument, "*IDN?").output, std::string(kIdentity) + "\n");
    const std::string programs = instrument.exec("lan", {"rpcinfo", "-p", kAddress}).output;
    const std::regex core("\n *395183 .*");
    EXPECT_EQ(std::distance(std::sregex_iterator(programs.begin(), programs.end(), core), {}), 1) << programs;
}

TEST(Vxi11Clients, LxiToolsSendSettingsAndReadData)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    const struct {
        const char* message;
        std::string output;
    } rows[] = {
        {"*IDN?", std::string(kIdentity) + "\n"},
        {":FREQ 2.5GHz", ""},
        {":FREQ?;:FREQ? MIN", "2500000000;50000\n"},
        {":NO:SUCH;:SYST:ERR?", "-113,\"Undefined header\"\n"},
        {":INST 2;:FREQ 3GHz;:INST?;:FREQ?", "2;3000000000\n"},
        {":INST?;:FREQ?", "1;2500000000\n"}, // a session of its own
    };
    for (const auto& row : rows) {
        const Outcome outcome = lxi_scpi(instrument, row.message);
        EXPECT_EQ(outcome.status, 0) << row.message;
        EXPECT_EQ(outcome.output, row.output) << row.message;
    }
}

TEST(Vxi11Clients, LxiToolsBenchmarkRunsToItsEnd)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    const Outcome outcome = lxi(instrument, {"benchmark", "-a", kAddress, "-c", "500"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(std::regex_search(outcome.output, std::regex("500\\s*Result: [0-9.]+ requests/second\n")))
        << outcome.output;
}

TEST(Vxi11Clients, PyVisaFindsWhatItExpectsOfAnInstrument)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    ASSERT_EQ(instrument.ctl({"module", "2", "slow", "700"}).status, 0);
    const Outcome outcome =
        instrument.exec("lan", {"/usr/bin/python3", ORVAN_INSTRUMENT_TESTS_DIR "/visa_instr.py",
                                "TCPIP::10.0.0.2::INSTR", "2"});
    EXPECT_EQ(outcome.status, 0) << outcome.output;
}

TEST(Vxi11Clients, TheInstrumentIsFoundAtItsNewAddress)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    const Outcome set = instrument.exec("lan", {program("orvan-maint"), "set-network", "--yes", "--address",
                                                kAddress, "--dhcp", "off", "--ip", "10.0.0.9", "--mask",
                                                "255.255.255.0", "--gateway", "10.0.0.1"});
    ASSERT_EQ(set.status, 0) << set.output;
    const Outcome outcome = lxi(instrument, {"discover", "-t", "2"});
    EXPECT_NE(outcome.output.find(std::string("Found \"") + kIdentity + "\" on address 10.0.0.9\n"),
              std::string::npos)
        << outcome.output;
}
