// What a run sets up: instrument, modules, service and ports.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>

#include <netinet/in.h>
#include <sys/socket.h>

#include "launcher_fixture.h"
#include "orvan_sandbox/addresses.h"
#include "sockets.h"

namespace fs = std::filesystem;
using namespace launcher_test;
using sandbox_test::read_file;

TEST_F(OrvanSimRun, PrintsThatItIsReadyAndHowToStopIt)
{
    if (!start_ready()) {
        return;
    }
    EXPECT_TRUE(std::regex_match(
        output(),
        std::regex("ready: OVX3654B, 4 channels, 4 modules\n"
                   "  page         http://127\\.0\\.0\\.1:[0-9]+/, and http://10\\.0\\.0\\.2/ from its LAN\n"
                   "  SCPI         TCP 127\\.0\\.0\\.1:[0-9]+, and 10\\.0\\.0\\.2, port of its settings, "
                   "from its LAN \\(orvan-sim exec --in lan\\)\n"
                   "  HiSLIP       TCP 127\\.0\\.0\\.1:[0-9]+, and 10\\.0\\.0\\.2:4880 from its LAN\n"
                   "  VXI-11       10\\.0\\.0\\.2 from its LAN\n"
                   "  maintenance  UDP 127\\.0\\.0\\.1:[0-9]+\n"
                   "  state        [^\n]*/orvan-sim-state-[^\n]* \\(removed at the end\\)\n"
                   "  stop         Ctrl-C, or kill " +
                   std::to_string(m_launcher) + "\n")))
        << output();
}

TEST_F(OrvanSimRun, ModelDecidesChannelsAndModules)
{
    if (!start_ready({"--model", "OVX5352R", "--clock-rate", "7"})) {
        return;
    }
    EXPECT_EQ(output().substr(0, 39), "ready: OVX5352R, 2 channels, 2 modules\n");
    EXPECT_EQ(ask("args"), "--foreground --platform benchtop\n");
    EXPECT_EQ(ask("env ORVAN_BOARD"), "benchtop\n");
    EXPECT_EQ(ask("env ORVAN_BOARD_CLOCK_RATE"), "7\n");
}

TEST_F(OrvanSimRun, ANewInstrumentIsProducedOnceAndKeepsItsModel)
{
    if (!start_ready({"--model", "KSR-7036", "--modules", "none", "--state", state()})) {
        return;
    }
    const auto log = state() / "log/production.log";
    EXPECT_EQ(read_file(log), "--foreground --produce KSR-7036 --serial 100001\n");
    EXPECT_EQ(stop(SIGTERM), 0);

    ASSERT_TRUE(start_ready({"--modules", "none", "--state", state()}));
    EXPECT_EQ(output().substr(0, 37), "ready: KSR-7036, 1 channel, 0 modules");
    EXPECT_EQ(ask("env ORVAN_BOARD"), "ksr7000\n");
    EXPECT_EQ(read_file(log), "--foreground --produce KSR-7036 --serial 100001\n");
    EXPECT_EQ(stop(SIGTERM), 0);

    start({"--model", "OVX3651P", "--state", state()});
    EXPECT_EQ(wait(), 1);
    EXPECT_EQ(output(),
              "orvan-sim: using " + fs::canonical(state()).string() +
                  " as state directory: it belongs to a model KSR-7036 (omit --model, or use another "
                  "directory)\n");
}

TEST_F(OrvanSimRun, ExistingSettingsAreNotProducedAgain)
{
    fs::create_directories(state() / "board");
    std::ofstream(state() / "board/eeprom.bin") << "anything";
    if (!start_ready({"--modules", "none", "--state", state()})) {
        return;
    }
    EXPECT_FALSE(fs::exists(state() / "log/production.log"));
}

TEST_F(OrvanSimRun, AFailedProductionIsAnErrorAndIsRetriedNextTime)
{
    if (!start_ready({"--modules", "none", "--state", state()})) {
        return;
    }
    stop(SIGTERM);
    fs::remove_all(state());
    start({"--modules", "none", "--state", state()}, {{"ORVAN_DOUBLE_PRODUCE_EXIT", "1"}});
    EXPECT_EQ(wait(), 1);
    EXPECT_EQ(output(),
              "orvan-sim: writing the settings of a new OVX3654B: orvan-service --produce ended with "
              "status 1 (see " +
                  (fs::canonical(state()) / "log/production.log").string() + ")\n");
    ASSERT_TRUE(start_ready({"--modules", "none", "--state", state()}));
    EXPECT_EQ(read_file(state() / "log/production.log"),
              "--foreground --produce OVX3654B --serial 100001\n--foreground --produce OVX3654B --serial "
              "100001\n");
}

TEST_F(OrvanSimRun, UnknownModelIsAnErrorThatListsTheKnownOnes)
{
    start({"--model", "OVX3653B"});
    EXPECT_EQ(wait(), 1);
    EXPECT_EQ(output().find("orvan-sim: unknown model OVX3653B: known models:\n  OVX2751P  OVX3651P"), 0u)
        << output();
    EXPECT_NE(output().find("KSR-8053"), std::string::npos);
    EXPECT_EQ(left_over(), "");
}

TEST_F(OrvanSimRun, AVerbRefusedByTheBoardIsAnErrorBeforeTheStart)
{
    struct {
        const char* verb;
        const char* refusal;
    } const cases[] = {
        {"bogus", "unknown verb 'bogus'; 'help' lists them"},
        {"", "a verb expected; 'help' lists them"},
        {"spi away", "'absent' or 'ok' expected, not 'away'"},
        {"spi absent;i2c 0x20 absent", "'spi absent|ok' expected"},
        {"i2c 0x55 absent", "no chip is at 0x55; 'i2c' lists them"},
        {"battery 30", "a benchtop board has nothing for 'battery'"},
    };
    for (const auto& [verb, refusal] : cases) {
        const Outcome refused = sim({"run", "--scpi-port", "0", "--maint-port", "0", "--state", state(),
                                     "--board", "i2c 0x20 absent", "--board", verb});
        EXPECT_EQ(refused.status, 1);
        EXPECT_EQ(refused.output, std::string("orvan-sim: --board \"") + verb + "\": " + refusal + "\n");
        EXPECT_FALSE(fs::exists(state() / "log/production.log"));
    }
    if (!start_ready({"--board", "i2c 0x20 absent", "--board", "spi absent"})) {
        return;
    }
    EXPECT_EQ(ask("env ORVAN_BOARD_AT_POWER_ON"), "i2c 0x20 absent;spi absent\n");
}

TEST_F(OrvanSimRun, FewerModulesThanChannelsLeaveTheirLinksOut)
{
    if (!start_ready({"--modules", "2", "--log-level", "info"})) {
        return;
    }
    EXPECT_EQ(output().substr(0, 39), "ready: OVX3654B, 4 channels, 2 modules\n");
    EXPECT_EQ(ask("args"), "--foreground --platform benchtop --log-level info\n");
    EXPECT_EQ(sim({"exec", "--", "ls", "/sys/class/net"}).output, "eth0\nlo\nusb0\nusb1\n");
}

TEST_F(OrvanSimRun, NoneMeansNoModules)
{
    if (!start_ready({"--modules", "none"})) {
        return;
    }
    EXPECT_EQ(output().substr(0, 39), "ready: OVX3654B, 4 channels, 0 modules\n");
}

TEST_F(OrvanSimRun, ServiceGetsTheHostsSocketsAndOpensItsOwn)
{
    if (!start_ready({"--modules", "1"})) {
        return;
    }
    EXPECT_EQ(ask("fds"), "2\n");
    EXPECT_EQ(ask("env LISTEN_FDNAMES"), "raw:hislip\n");
    const std::string inside = "exec 3<>/dev/tcp/10.0.0.2/5025; echo pid >&3; head -n 1 <&3";
    EXPECT_EQ(sim({"exec", "--in", "lan", "--", "bash", "-c", inside}).output, ask("pid"));
}

TEST_F(OrvanSimRun, ServiceRunsInTheSandboxWithTheStandInsFirst)
{
    if (!start_ready({"--modules", "1", "--state", state()})) {
        return;
    }
    EXPECT_EQ(ask("run test -d /home/orvan/halde/upgrade/orvanx && test -e /sys/class/net/usb0"), "0\n");
    EXPECT_EQ(ask("run sudo /usr/local/bin/he_set_hostname.sh here"), "0\n");
    EXPECT_NE(read_file(state() / "log/calls.log").find(" he_set_hostname.sh here\n"), std::string::npos);
    EXPECT_EQ(ask("env ORVAN_STATE"), state().string() + "\n");
}

TEST_F(OrvanSimRun, BusyPortIsAnErrorThatNamesTheOption)
{
    const orvan_common::UniqueFd busy(orvan_launcher::listen_tcp("127.0.0.1", 0));
    const std::string port = std::to_string(orvan_launcher::port_of(busy.get()));
    EXPECT_EQ(sim({"run", "--scpi-port", port}).output,
              "orvan-sim: listening on 127.0.0.1 port " + port +
                  ": Address already in use (choose another with --scpi-port; 0 takes a free one)\n");
    EXPECT_EQ(sim({"run", "--scpi-port", "0", "--hislip-port", port}).output,
              "orvan-sim: listening on 127.0.0.1 port " + port +
                  ": Address already in use (choose another with --hislip-port; 0 takes a free one)\n");
    EXPECT_EQ(left_over(), "");
}

TEST_F(OrvanSimRun, GivenPortsAreServed)
{
    std::string scpi;
    std::string hislip;
    {
        const orvan_common::UniqueFd free_one(orvan_launcher::listen_tcp("127.0.0.1", 0));
        const orvan_common::UniqueFd another(orvan_launcher::listen_tcp("127.0.0.1", 0));
        scpi = std::to_string(orvan_launcher::port_of(free_one.get()));
        hislip = std::to_string(orvan_launcher::port_of(another.get()));
    }
    if (!start_ready({"--modules", "none", "--scpi-port", scpi, "--hislip-port", hislip})) {
        return;
    }
    EXPECT_EQ(printed("SCPI         TCP 127.0.0.1:"), scpi);
    EXPECT_EQ(printed("HiSLIP       TCP 127.0.0.1:"), hislip);
    EXPECT_EQ(ask("listener"), "3\n");
    EXPECT_EQ(ask("listener", "HiSLIP       TCP 127.0.0.1:"), "4\n");
}

TEST_F(OrvanSimRun, MaintenancePortCarriesDatagramsBothWays)
{
    if (!start_ready({"--modules", "none"})) {
        return;
    }
    const auto record = read_file(fs::path(printed("state        ")) / "run/instance.json");
    std::smatch init;
    ASSERT_TRUE(std::regex_search(record, init, std::regex("\"init\":\\s*([0-9]+)")));
    const auto membership =
        orvan_sandbox::open_membership(std::stoi(init[1]), "/proc/" + init[1].str() + "/ns/net");
    ASSERT_TRUE(membership.ok());
    const auto server = orvan_sandbox::make_descriptor(membership.value(), [] {
        return orvan_launcher::bind_udp("0.0.0.0", orvan_sandbox::kMaintenancePort);
    });
    ASSERT_TRUE(server.ok());
    const timeval patience = {10, 0};
    ::setsockopt(server.value().get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);

    const int port = std::stoi(printed("UDP 127.0.0.1:"));
    for (int round = 0; round < 2; ++round) {
        const orvan_common::UniqueFd client(orvan_launcher::connect_udp("127.0.0.1", port));
        const std::string request(1046, static_cast<char>('a' + round));
        ASSERT_EQ(send(client.get(), request.data(), request.size(), 0), 1046);
        char text[2000] = {};
        sockaddr_in from = {};
        socklen_t size = sizeof from;
        ASSERT_EQ(
            recvfrom(server.value().get(), text, sizeof text, 0, reinterpret_cast<sockaddr*>(&from), &size),
            1046);
        EXPECT_EQ(text, request);
        EXPECT_EQ(ntohl(from.sin_addr.s_addr), 0x0A000001u);
        ASSERT_EQ(sendto(server.value().get(), "reply", 5, 0, reinterpret_cast<sockaddr*>(&from), size), 5);
        ::setsockopt(client.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        EXPECT_EQ(recv(client.get(), text, sizeof text, 0), 5);
    }
}
