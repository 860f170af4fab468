#include <csignal>
#include <fstream>
#include <regex>
#include <set>

#include <netinet/in.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include "launcher_fixture.h"
#include "orvan_sandbox/addresses.h"
#include "sockets.h"

namespace fs = std::filesystem;
using namespace launcher_test;
using sandbox_test::eventually;
using sandbox_test::read_file;

class OrvanSimRun : public LauncherTest {};

/**
 * Modules without a sandbox have fixed addresses and ports on the host's loopback; so the test itself moves
 * into a sandbox first, where that loopback is its own.
 */
class OrvanSimRunOnHost : public LauncherTest {
protected:
    void SetUp() override
    {
        const auto inside = orvan_sandbox::enter({m_outer.path(), 0});
        if (!inside && inside.error().refused) {
            GTEST_SKIP() << inside.error().text();
        }
        ASSERT_TRUE(inside.ok()) << inside.error().text();
        ::unsetenv(orvan_sandbox::kSandboxVariable);
        LauncherTest::SetUp();
    }
    TemporaryDirectory m_outer;
};

TEST_F(OrvanSimRun, PrintsWhatIsReadyAndHowToStopIt)
{
    if (!start_ready()) {
        return;
    }
    EXPECT_TRUE(std::regex_match(
        output(),
        std::regex("ready: OVX3654B, 4 channels, 4 modules\n"
                   "  SCPI         TCP 127\\.0\\.0\\.1:[0-9]+, and 10\\.0\\.0\\.2, port of its settings, "
                   "from its LAN \\(orvan-sim exec --in lan\\)\n"
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

TEST_F(OrvanSimRun, SettingsThatAreThereAlreadyAreNotProduced)
{
    fs::create_directories(state() / "board");
    std::ofstream(state() / "board/eeprom.bin") << "anything";
    if (!start_ready({"--modules", "none", "--state", state()})) {
        return;
    }
    EXPECT_FALSE(fs::exists(state() / "log/production.log"));
}

TEST_F(OrvanSimRun, AFailedProductionIsAnErrorAndIsTriedAgainNextTime)
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

TEST_F(OrvanSimRun, AVerbThatTheBoardRefusesIsAnErrorBeforeTheStart)
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

TEST_F(OrvanSimRun, ServiceGetsTheHostsSocketAndOpensItsOwn)
{
    if (!start_ready({"--modules", "1"})) {
        return;
    }
    EXPECT_EQ(ask("fds"), "1\n");
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
    const UniqueFd busy(orvan_launcher::listen_tcp("127.0.0.1", 0));
    const std::string port = std::to_string(orvan_launcher::port_of(busy.get()));
    EXPECT_EQ(sim({"run", "--scpi-port", port}).output,
              "orvan-sim: listening on 127.0.0.1 port " + port +
                  ": Address already in use (choose another with --scpi-port; 0 takes a free one)\n");
    EXPECT_EQ(left_over(), "");
}

TEST_F(OrvanSimRun, GivenPortIsServed)
{
    int port = 0;
    {
        const UniqueFd free_one(orvan_launcher::listen_tcp("127.0.0.1", 0));
        port = orvan_launcher::port_of(free_one.get());
    }
    if (!start_ready({"--modules", "none", "--scpi-port", std::to_string(port)})) {
        return;
    }
    EXPECT_EQ(printed("TCP 127.0.0.1:"), std::to_string(port));
    EXPECT_EQ(ask("fds"), "1\n");
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
        const UniqueFd client(orvan_launcher::connect_udp("127.0.0.1", port));
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

TEST_F(OrvanSimRun, RequestedRebootRestartsTheServiceOnTheSamePort)
{
    if (!start_ready({"--modules", "1"})) {
        return;
    }
    const std::string before = ask("pid");
    EXPECT_EQ(ask("run touch /dev/shm/orvanData"), "0\n");
    ask("run sudo reboot");
    EXPECT_TRUE(
        eventually([&] { return output().find("the service is ready again\n") != std::string::npos; }));
    EXPECT_NE(ask("pid"), before);
    EXPECT_EQ(ask("run test -e /dev/shm/orvanData"), "1\n");
    EXPECT_EQ(sim({"ctl", "module", "1", "hello"}).output, "ok hello\n");
}

TEST_F(OrvanSimRun, ServiceThatEndsByItselfRightAfterTheRequestIsRestartedToo)
{
    if (!start_ready({"--modules", "none"})) {
        return;
    }
    ask("run sudo reboot; kill -KILL $PPID");
    EXPECT_TRUE(eventually([&] {
        return output().find("the service is ready again\n") != std::string::npos;
    })) << output();
}

TEST_F(OrvanSimRun, WithoutRestartsACrashOfTheServiceEndsTheRunWithItsStatus)
{
    if (!start_ready({"--modules", "1", "--state", state(), "--no-restart"})) {
        return;
    }
    ask("abort");
    EXPECT_EQ(wait(), 128 + SIGABRT);
    EXPECT_NE(output().find("orvan-sim: the service ended with signal 6 (Aborted); see " +
                            (state() / "log/service.log").string() + "\n"),
              std::string::npos)
        << output();
    EXPECT_EQ(left_over(), "");
}

TEST_F(OrvanSimRun, WithoutRestartsAServiceThatFailsEndsTheRun)
{
    if (!start_ready({"--modules", "none", "--no-restart"})) {
        return;
    }
    ask("exit 9");
    EXPECT_EQ(wait(), 9);
    EXPECT_NE(output().find("orvan-sim: the service ended with status 9\n"), std::string::npos) << output();
}

TEST_F(OrvanSimRun, AServiceThatFailsIsStartedAgainOnTheSamePortWhileClientsWait)
{
    if (!start_ready({"--modules", "1", "--state", state(), "--clock-rate", "5"})) {
        return;
    }
    const std::string started_again =
        "; see " + (state() / "log/service.log").string() + "; starting it again in 1 s\n";
    const std::string ready_again = "the service is ready again\n";
    std::string expected = output();
    std::string before = ask("pid");
    EXPECT_EQ(ask("run touch /dev/shm/orvanData"), "0\n");
    for (const auto& [failure, how] :
         {std::pair<std::string, std::string>{"abort", "signal 6 (Aborted)"}, {"exit 1", "status 1"}}) {
        ask(failure);
        const std::string after = ask("pid"); // its connection is made before the service is there
        EXPECT_TRUE(std::regex_match(after, std::regex("[0-9]+\n"))) << after;
        EXPECT_NE(after, before);
        before = after;
        expected += "orvan-sim: the service ended with " + how + started_again + ready_again;
        EXPECT_TRUE(eventually([&] { return output() == expected; })) << output();
    }
    EXPECT_EQ(ask("run test -e /dev/shm/orvanData"), "0\n") << "no reboot, which clears it";
    EXPECT_EQ(ask("fds"), "1\n");
    EXPECT_EQ(sim({"ctl", "module", "1", "hello"}).output, "ok hello\n");
    EXPECT_EQ(stop(SIGTERM), 0);
}

TEST_F(OrvanSimRun, AServiceThatWaitsForItsRestartIsSeenAndARebootDoesNotWait)
{
    // Five seconds, long after both commands.
    if (!start_ready({"--modules", "none"})) {
        return;
    }
    ask("exit 3");
    EXPECT_TRUE(
        eventually([&] { return output().find("; starting it again in 5 s\n") != std::string::npos; }));
    EXPECT_NE(sim({"ctl", "status"}).output.find("service   failed, restarting\n"), std::string::npos);
    EXPECT_EQ(sim({"exec", "--", "sudo", "reboot"}).status, 0);
    EXPECT_TRUE(eventually([&] {
        return output().ends_with("starting it again in 5 s\nreboot requested, restarting the service\n"
                                  "the service is ready again\n");
    })) << output();
    EXPECT_EQ(ask("fds"), "1\n");
}

TEST_F(OrvanSimRun, AServiceThatFailsAtItsRestartIsTriedAgain)
{
    if (!start_ready({"--modules", "none", "--clock-rate", "50"})) {
        return;
    }
    ask("run touch $ORVAN_STATE/fails");
    ask("abort");
    const auto count = [&] {
        const std::string text = output();
        size_t times = 0;
        for (size_t at = 0; (at = text.find("starting it again in 0.1 s\n", at)) != std::string::npos; ++at) {
            ++times;
        }
        return times;
    };
    EXPECT_TRUE(eventually([&] { return count() >= 3; })) << output();
    fs::remove(fs::path(printed("state        ")) / "fails");
    EXPECT_TRUE(eventually([&] { return output().ends_with("the service is ready again\n"); })) << output();
}

TEST_F(OrvanSimRun, AServiceThatStopsFeedingItsWatchdogIsAbortedAndStartedAgain)
{
    // The clock rate shortens the delay of the restart and not the watchdog.
    if (!start_ready({"--modules", "none", "--watchdog", "3", "--clock-rate", "50", "--state", state()})) {
        return;
    }
    EXPECT_EQ(ask("env WATCHDOG_USEC"), "3000000\n");
    // Fed for longer than the three seconds, it keeps running.
    const std::string before = output();
    EXPECT_TRUE(eventually([&] { return std::stoi(ask("fed")) >= 3; }));
    EXPECT_EQ(output(), before);
    const std::string status = sim({"ctl", "status"}).output;
    std::smatch service;
    ASSERT_TRUE(std::regex_search(status, service, std::regex("service   ready, process ([0-9]+), well\n")));
    ASSERT_EQ(kill(std::stoi(service[1]), SIGSTOP), 0);
    const std::string expected = before +
                                 "orvan-sim: the service has not fed its watchdog for 3 s; ending it with "
                                 "SIGABRT\norvan-sim: the service ended with signal 6 (Aborted); see " +
                                 (state() / "log/service.log").string() +
                                 "; starting it again in 0.1 s\nthe service is ready again\n";
    EXPECT_TRUE(eventually([&] { return output() == expected; })) << output();
    const std::regex again("service   ready, process [0-9]+, 1 restart, well\n");
    EXPECT_TRUE(std::regex_search(sim({"ctl", "status"}).output, again)) << sim({"ctl", "status"}).output;
}

TEST_F(OrvanSimRun, WithoutRestartsAServiceThatStopsFeedingItsWatchdogEndsTheRun)
{
    if (!start_ready({"--modules", "none", "--watchdog", "0.5", "--no-restart"})) {
        return;
    }
    ask("run kill -STOP $PPID");
    EXPECT_EQ(wait(), 128 + SIGABRT);
    EXPECT_NE(output().find("orvan-sim: the service has not fed its watchdog for 0.5 s; "), std::string::npos)
        << output();
}

TEST_F(OrvanSimRun, TheWatchdogIsThatOfTheUnitAndCanBeSwitchedOff)
{
    if (!start_ready({"--modules", "none"})) {
        return;
    }
    EXPECT_EQ(ask("env WATCHDOG_USEC"), "30000000\n");
    EXPECT_EQ(stop(SIGTERM), 0);
    ASSERT_TRUE(start_ready({"--modules", "none", "--watchdog", "0"}));
    EXPECT_EQ(ask("env WATCHDOG_USEC"), "(none)\n");
}

TEST_F(OrvanSimRun, ServicesThatEndWithBadOptionsOrOnRequestAreNotRestarted)
{
    if (!start_ready({"--modules", "none"})) {
        return;
    }
    ask("exit 2");
    EXPECT_EQ(wait(), 2);
    EXPECT_TRUE(output().ends_with("orvan-sim: the service ended with status 2\n")) << output();
    ASSERT_TRUE(start_ready({"--modules", "none"}));
    ask("run kill -TERM $PPID");
    EXPECT_EQ(wait(), 128 + SIGTERM);
    EXPECT_TRUE(output().ends_with("orvan-sim: the service ended with signal 15 (Terminated)\n")) << output();
}

TEST_F(OrvanSimRun, ServiceThatEndsInOrderEndsTheRunInOrder)
{
    if (!start_ready({"--modules", "1"})) {
        return;
    }
    ask("exit 0");
    EXPECT_EQ(wait(), 0);
    EXPECT_TRUE(output().ends_with("the service has ended in order, as by its power button\n")) << output();
    EXPECT_EQ(left_over(), "");
}

TEST_F(OrvanSimRun, ServiceThatEndsBeforeItIsReadyIsAnErrorWhateverItsStatus)
{
    start({"--modules", "none"}, {{"ORVAN_DOUBLE_EXIT", "0"}});
    EXPECT_EQ(wait(), 1);
    EXPECT_TRUE(output().ends_with("double: ends at once\norvan-sim: the service ended with status 0\n"))
        << output();
}

TEST_F(OrvanSimRun, ServiceThatDoesNotGetReadyEndsTheRun)
{
    start({"--modules", "none"}, {{"ORVAN_DOUBLE_EXIT", "4"}});
    EXPECT_EQ(wait(), 4);
    EXPECT_EQ(output().find("ready"), std::string::npos);
}

TEST_F(OrvanSimRun, ModuleThatCannotStartEndsTheRun)
{
    start({"--modules", "1"}, {{"ORVAN_DOUBLE_MODULE_EXIT", "5"}});
    EXPECT_EQ(wait(), 1);
    EXPECT_EQ(output().find("orvan-sim: starting module 1: it ended with status 5 (see "), 0u) << output();
    EXPECT_EQ(left_over(), "");
}

TEST_F(OrvanSimRun, MissingProgramIsNamed)
{
    fs::remove(m_folder.path() / "bin/orvan-module");
    start({"--modules", "1"});
    EXPECT_EQ(wait(), 1);
    EXPECT_EQ(output(), "orvan-sim: running " + (m_folder.path() / "bin/orvan-module").string() +
                            ": No such file or directory\n");
}

TEST_F(OrvanSimRun, EachEndingSignalEndsInOrderAndLeavesNothing)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        if (!start_ready({"--modules", "2"})) {
            return;
        }
        const std::string init = printed("kill ");
        EXPECT_EQ(stop(signal), 0);
        EXPECT_EQ(left_over(), "");
    }
}

TEST_F(OrvanSimRun, SignalWhileStartingEndsItToo)
{
    start({"--modules", "none", "--state", state()}, {{"ORVAN_DOUBLE_MUTE", "1"}});
    EXPECT_TRUE(eventually([&] { return fs::exists(state() / "log/service.log"); }));
    EXPECT_EQ(stop(SIGTERM), 0);
    EXPECT_EQ(output().find("ready"), std::string::npos);
}

TEST_F(OrvanSimRun, NamedStateDirectoryStaysWithoutItsSockets)
{
    if (!start_ready({"--modules", "1", "--state", state()})) {
        return;
    }
    EXPECT_EQ(printed("state        "), state().string());
    EXPECT_EQ(output().find("removed"), std::string::npos);
    EXPECT_EQ(stop(SIGTERM), 0);
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(state())) {
        names.insert(entry.path().filename());
    }
    EXPECT_EQ(names, (std::set<std::string>{"board", "halde", "log"}));
}

TEST_F(OrvanSimRun, StateDirectoryWithATooLongNameIsRefused)
{
    const std::string name = (m_folder.path() / std::string(80, 'x')).string();
    const Outcome outcome = sim({"run", "--scpi-port", "0", "--state", name});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output,
              "orvan-sim: using " + name +
                  " as state directory: File name too long: its sockets' names would be too long\n");
}

TEST_F(OrvanSimRun, StateDirectoryInUseIsRefusedAndLeftAlone)
{
    if (!start_ready({"--modules", "none", "--state", state()})) {
        return;
    }
    EXPECT_EQ(sim({"run", "--scpi-port", "0", "--state", state()}).output,
              "orvan-sim: using " + state().string() +
                  " as state directory: another instance is running in it\n");
    EXPECT_EQ(sim({"ctl", "status"}).status, 0);
}

TEST_F(OrvanSimRun, KilledLauncherEndsAllProcessesAndTheNextRunCleansUp)
{
    if (!start_ready({"--modules", "2"})) {
        return;
    }
    const std::string left = printed("state        ");
    std::vector<pid_t> pids;
    const std::string status = sim({"ctl", "status"}).output;
    const std::regex process("process ([0-9]+)");
    for (std::sregex_iterator match(status.begin(), status.end(), process), end; match != end; ++match) {
        pids.push_back(std::stoi((*match)[1]));
    }
    ASSERT_EQ(pids.size(), 3u) << status;
    EXPECT_EQ(stop(SIGKILL), 128 + SIGKILL);
    for (const pid_t pid : pids) {
        EXPECT_TRUE(eventually([&] { return kill(pid, 0) != 0; })) << pid;
    }
    EXPECT_TRUE(fs::exists(left));
    EXPECT_EQ(sim({"ctl", "status"}).status, 1);
    if (start_ready({"--modules", "none"})) {
        EXPECT_FALSE(fs::exists(left));
        EXPECT_EQ(stop(SIGTERM), 0);
    }
    EXPECT_EQ(left_over(), "");
}

TEST_F(OrvanSimRun, AStateDirectoryOfAKilledLauncherIsTheOnlyInstanceOnceItRunsAgain)
{
    for (int life = 0; life < 3; ++life) {
        if (!start_ready({"--modules", "none", "--state", state()})) {
            return;
        }
        EXPECT_EQ(sim({"ctl", "status"}).status, 0) << sim({"ctl", "status"}).output;
        if (life < 2) {
            EXPECT_EQ(stop(SIGKILL), 128 + SIGKILL);
        }
    }
    EXPECT_EQ(stop(SIGTERM), 0);
    EXPECT_EQ(left_over(), "");
}

TEST_F(OrvanSimRunOnHost, WithoutASandboxModulesAreOnLoopbackAndALineNamesWhatIsMissing)
{
    if (!start_ready({"--no-sandbox", "--modules", "1"})) {
        return;
    }
    EXPECT_EQ(output().find(
                  "without a sandbox: missing are the device with its board and front panel, "
                  "/home/orvan/halde, the channel records, USB links, module addresses 192.168.x.1, the LAN "
                  "side, the maintenance port\n"
                  "ready: OVX3654B, 4 channels, 1 module\n"),
              0u)
        << output();
    EXPECT_EQ(ask("args"), "--foreground --modules-on-loopback --channels 4\n");
    EXPECT_EQ(ask("fds"), "1\n");
    EXPECT_EQ(ask("env ORVAN_SANDBOX"), "(none)\n");
    ask("run sudo reboot");
    EXPECT_TRUE(
        eventually([&] { return output().find("the service is ready again\n") != std::string::npos; }));
    EXPECT_EQ(sim({"ctl", "module", "1", "hello"}).output, "ok hello\n");
    EXPECT_EQ(sim({"ctl", "module", "1", "drop"}).output,
              "orvan-sim: changing the link of module 1: there are no links without a sandbox\n");
    EXPECT_EQ(sim({"exec", "--", "true"}).output, "orvan-sim: this instance has no sandbox\n");
}

TEST_F(OrvanSimRunOnHost, WithoutASandboxAKilledLauncherEndsAllProcessesToo)
{
    if (!start_ready({"--no-sandbox", "--modules", "1"})) {
        return;
    }
    const pid_t service = std::stoi(ask("pid"));
    stop(SIGKILL);
    EXPECT_TRUE(eventually([&] { return kill(service, 0) != 0; }));
}

TEST_F(OrvanSimRun, FallbackIsTakenWhereTheKernelRefusesASandbox)
{
    const TemporaryDirectory outer;
    START_SANDBOX(sandbox, (orvan_sandbox::Options{outer.path(), 0}));
    fs::copy(m_folder.path() / "bin", outer.path() / "bin"); // what the outer sandbox shows
    const fs::path program = outer.path() / "bin/orvan-sim";
    const auto run = [&](const char* option) {
        const UniqueFd text(::memfd_create("output", 0));
        const auto status = sandbox.run(orvan_sandbox::Role::controller(), [&] {
            std::ofstream("/proc/sys/user/max_net_namespaces") << "0\n";
            ::dup2(text.get(), 1);
            ::dup2(text.get(), 2);
            // The service ends at once: the test is that it started.
            ::setenv("ORVAN_DOUBLE_EXIT", "6", 1);
            ::setenv("TMPDIR", "/dev/shm", 1);
            ::setenv("XDG_RUNTIME_DIR", "/dev/shm", 1);
            return ::execl(program.c_str(), program.c_str(), "run", "--modules", "1", "--state",
                           "/home/orvan/halde/inner", option, nullptr);
        });
        char part[4096] = {};
        EXPECT_GE(pread(text.get(), part, sizeof part - 1, 0), 0);
        return std::to_string(status ? status.value() : -1) + " " + part;
    };
    const std::string refusal = "orvan-sim: creating the network namespace: No space left on device (";
    const std::string plain = run("--log-level=err");
    EXPECT_EQ(plain.find("1 " + refusal), 0u) << plain;
    EXPECT_NE(plain.find("; or run with --fallback)\n"), std::string::npos) << plain;
    const std::string fallen = run("--fallback");
    EXPECT_EQ(fallen.find("6 " + refusal), 0u) << fallen;
    EXPECT_NE(fallen.find("without a sandbox: missing are"), std::string::npos) << fallen;
}
