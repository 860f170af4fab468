// The end of a run, and what is left after it.
#include <csignal>
#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "launcher_fixture.h"

namespace fs = std::filesystem;
using namespace launcher_test;
using sandbox_test::eventually;

TEST_F(OrvanSimRun, CleanExitOfTheServiceEndsTheRunCleanly)
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

TEST_F(OrvanSimRun, ServiceThatDoesNotBecomeReadyEndsTheRun)
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

TEST_F(OrvanSimRun, EachTerminatingSignalEndsCleanlyAndLeavesNothing)
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

TEST_F(OrvanSimRun, SignalDuringTheStartEndsItToo)
{
    start({"--modules", "none", "--state", state()}, {{"ORVAN_DOUBLE_MUTE", "1"}});
    EXPECT_TRUE(eventually([&] { return fs::exists(state() / "log/service.log"); }));
    EXPECT_EQ(stop(SIGTERM), 0);
    EXPECT_EQ(output().find("ready"), std::string::npos);
}

TEST_F(OrvanSimRun, NamedStateDirectoryIsKeptWithoutItsSockets)
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
    EXPECT_EQ(names, (std::set<std::string>{"board", "halde", "log", "web"}));
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
    ASSERT_EQ(pids.size(), 5u) << status;
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
