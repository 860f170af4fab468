// Reboots, crashes and hangs of the service during a run.
#include <csignal>
#include <filesystem>
#include <regex>
#include <string>
#include <utility>

#include "launcher_fixture.h"

namespace fs = std::filesystem;
using namespace launcher_test;
using sandbox_test::eventually;

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

TEST_F(OrvanSimRun, ServiceThatExitsRightAfterTheRequestIsRestartedToo)
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
        const std::string after = ask("pid"); // connects before the service runs
        EXPECT_TRUE(std::regex_match(after, std::regex("[0-9]+\n"))) << after;
        EXPECT_NE(after, before);
        before = after;
        expected += "orvan-sim: the service ended with " + how + started_again + ready_again;
        EXPECT_TRUE(eventually([&] { return output() == expected; })) << output();
    }
    EXPECT_EQ(ask("run test -e /dev/shm/orvanData"), "0\n") << "no reboot, which clears it";
    EXPECT_EQ(ask("fds"), "2\n");
    EXPECT_EQ(sim({"ctl", "module", "1", "hello"}).output, "ok hello\n");
    EXPECT_EQ(stop(SIGTERM), 0);
}

TEST_F(OrvanSimRun, AServiceWaitingForItsRestartIsReportedAndARebootDoesNotWait)
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
    EXPECT_EQ(ask("fds"), "2\n");
}

TEST_F(OrvanSimRun, AServiceThatFailsAtItsRestartIsRestartedAgain)
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
    // The clock rate shortens the restart delay but not the watchdog time.
    if (!start_ready({"--modules", "none", "--watchdog", "3", "--clock-rate", "50", "--state", state()})) {
        return;
    }
    EXPECT_EQ(ask("env WATCHDOG_USEC"), "3000000\n");
    // It keeps running while fed, for longer than the three seconds.
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
