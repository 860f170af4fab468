// The instrument on a network with mDNS: controller and LAN each have a bus and an avahi-daemon of their own.
#include <algorithm>
#include <sstream>

#include <gtest/gtest.h>

#include "instrument.h"
#include "support/files.h"

using namespace orvan_test;

namespace {

constexpr const char* kName = "OVX3654B-100001";
constexpr const char* kNoBus = "mDNS: not announced while there is no system bus\n";

Outcome discover(const Instrument& instrument)
{
    return instrument.exec("lan", {ORVAN_MDNS_DIR "/machine", "--another", "lxi", "discover", "--mdns"});
}

std::string web_log(const Instrument& instrument)
{
    return read_file(instrument.state() / "log/web.log");
}

bool logs(const Instrument& instrument, const std::string& text)
{
    return eventually([&] { return web_log(instrument).find(text) != std::string::npos; });
}

/** Gives the controller a bus, and restarts it, so that its programs find it. */
void start_with_avahi(const Instrument& instrument)
{
    const Outcome started = instrument.exec("controller", {ORVAN_MDNS_DIR "/machine"});
    ASSERT_EQ(started.status, 0) << started.output;
    ASSERT_TRUE(instrument.reboot());
}

/** As lxi-tools print it; several services come in any order. */
void expect_found(const std::string& output, const std::string& name, const std::string& address)
{
    const std::string found = "  Found \"" + name + "\" on address " + address + "\n    ";
    for (const char* service : {"lxi service on port 80", "scpi-raw service on port 5025",
                                "hislip service on port 4880", "vxi-11 service on port 111"}) {
        EXPECT_NE(output.find(found + service + "\n"), std::string::npos) << service << '\n' << output;
    }
}

} // namespace

TEST(Mdns, LxiToolsFindTheInstrumentWithAllItsServices)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({"--http-port", "0"});
    start_with_avahi(instrument);
    ASSERT_TRUE(logs(instrument, std::string("mDNS: announced as \"") + kName + "\"\n"))
        << web_log(instrument);
    const Outcome outcome = discover(instrument);
    EXPECT_EQ(outcome.status, 0);
    expect_found(outcome.output, kName, "10.0.0.2");
}

TEST(Mdns, AnotherImplementationReadsTheIdentityAndTheHostName)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({"--http-port", "0"});
    start_with_avahi(instrument);
    const std::string expected = std::string("+ _lxi._tcp ") + kName +
                                 " OVX3654B-100001.local. 10.0.0.2:80 txtvers=1 Manufacturer=Halde "
                                 "Electronics Ltd. Model=OVX3654B SerialNumber=100001 "
                                 "FirmwareVersion=1.19.145\n";
    const Outcome outcome = instrument.exec(
        "lan", {"timeout", "30", ORVAN_MDNS_DIR "/browse", "10.0.0.1", "until", "+ _lxi._tcp "});
    EXPECT_NE(outcome.output.find(expected), std::string::npos) << outcome.output;
}

TEST(Mdns, ANewAddressAndANewSerialNumberAreAnnounced)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({"--http-port", "0"});
    start_with_avahi(instrument);
    for (const std::vector<std::string>& change :
         {std::vector<std::string>{"set-network", "--dhcp", "off", "--ip", "10.0.0.9", "--mask",
                                   "255.255.255.0", "--gateway", "10.0.0.1", "--address", "10.0.0.2"},
          {"set-factory", "--serial-number", "241107", "--address", "10.0.0.9"}}) {
        std::vector<std::string> command = {program("orvan-maint")};
        command.insert(command.end(), change.begin(), change.end());
        command.push_back("--yes");
        const Outcome set = instrument.exec("lan", command);
        ASSERT_EQ(set.status, 0) << set.output;
    }
    ASSERT_TRUE(instrument.reboot());
    ASSERT_TRUE(logs(instrument, "mDNS: announced as \"OVX3654B-241107\"\n")) << web_log(instrument);
    expect_found(discover(instrument).output, "OVX3654B-241107", "10.0.0.9");
}

TEST(Mdns, WithoutABusThereIsOneLineAndEverythingElseWorks)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({"--http-port", "0"});
    ASSERT_TRUE(logs(instrument, kNoBus)) << web_log(instrument);
    const Outcome page =
        instrument.exec("lan", {"bash", "-c",
                                "exec 3<>/dev/tcp/10.0.0.2/80 && printf 'GET / HTTP/1.1\\r\\n"
                                "Host: 10.0.0.2\\r\\nConnection: close\\r\\n\\r\\n' >&3 && "
                                "head -n 1 <&3"});
    EXPECT_EQ(page.output, "HTTP/1.1 200 OK\r\n");
    std::istringstream lines(web_log(instrument));
    int count = 0;
    for (std::string line; std::getline(lines, line);) {
        count += line.find("mDNS") != std::string::npos ? 1 : 0;
    }
    EXPECT_EQ(count, 1) << web_log(instrument);
}
