#include <csignal>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "sandbox_fixture.h"

using namespace orvan_sandbox;
using namespace sandbox_test;
using orvan_common::UniqueFd;

namespace {

/** True when all processes that hold the other end of a pipe are gone within ten seconds. */
bool all_gone(int reading)
{
    pollfd waiting = {reading, POLLIN, 0};
    return ::poll(&waiting, 1, 10'000) == 1 && (waiting.revents & POLLHUP) != 0;
}

/** Starts a process that outlives its parent, in a new session, and holds `fd`. */
int run_daemon(int fd)
{
    if (::fork() == 0) {
        ::setsid();
        if (::fork() == 0) {
            std::signal(SIGTERM, SIG_IGN);
            std::signal(SIGHUP, SIG_IGN);
            while (::fcntl(fd, F_GETFD) >= 0) {
                ::pause();
            }
        }
        ::_exit(0);
    }
    return 0;
}

} // namespace

TEST(SandboxLife, StopEndsProcessesOfEveryRoleIncludingDaemons)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 2}));
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const UniqueFd reading(ends[0]);
    UniqueFd writing(ends[1]);
    for (int index = 0; index < role_count(2); ++index) {
        const auto status = sandbox.run(Role::at(index), [&] { return run_daemon(writing.get()); });
        ASSERT_TRUE(status.ok());
        ASSERT_EQ(status.value(), 0);
    }
    const pid_t init = sandbox.init_pid();
    writing.reset();
    pollfd still = {reading.get(), POLLIN, 0};
    EXPECT_EQ(poll(&still, 1, 0), 0);
    sandbox.stop();
    EXPECT_TRUE(all_gone(reading.get()));
    EXPECT_NE(kill(init, 0), 0);
    sandbox.stop();
}

TEST(SandboxLife, KilledCreatorEndsEverything)
{
    const TemporaryDirectory state;
    {
        START_SANDBOX(probe, (Options{state.path(), 1}));
        probe.stop();
    }
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const UniqueFd reading(ends[0]);
    UniqueFd writing(ends[1]);
    int started[2];
    ASSERT_EQ(pipe2(started, O_CLOEXEC), 0);
    const UniqueFd reports(started[0]);
    const pid_t maker = ::fork();
    ASSERT_GE(maker, 0);
    if (maker == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        auto sandbox = Sandbox::start({state.path(), 1});
        if (!sandbox) {
            ::_exit(1);
        }
        Command sleeper;
        sleeper.argv = {"sleep", "1000"};
        sleeper.output = writing.get();
        const bool good = sandbox->spawn(Role::module(1), sleeper).ok() &&
                          sandbox->run(Role::controller(), [&] { return run_daemon(writing.get()); }).ok();
        const pid_t init = good ? sandbox->init_pid() : -1;
        if (::write(started[1], &init, sizeof init) < 0) {
            ::_exit(1);
        }
        ::pause();
    }
    writing.reset();
    pid_t init = -1;
    ASSERT_EQ(read(reports.get(), &init, sizeof init), static_cast<ssize_t>(sizeof init));
    ::close(started[1]);
    ASSERT_GT(init, 0);
    ::kill(maker, SIGKILL);
    ::waitpid(maker, nullptr, 0);
    EXPECT_TRUE(all_gone(reading.get()));
    EXPECT_TRUE(eventually([&] { return kill(init, 0) != 0; }));
}

TEST(SandboxLife, ChildrenNotWaitedForAreReapedByStop)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    const auto ended = sandbox.spawn(Role::controller(), [] { return 3; });
    const auto running = sandbox.spawn(Role::controller(), [] { return ::pause(); });
    ASSERT_TRUE(ended.ok() && running.ok());
    sandbox.stop();
    EXPECT_EQ(wait_for(ended.value()), -1);
    EXPECT_EQ(wait_for(running.value()), -1);
}

TEST(SandboxLife, WaitingForNoProcessLeavesOtherChildrenAlone)
{
    const pid_t other = ::fork();
    ASSERT_GE(other, 0);
    if (other == 0) {
        ::_exit(7);
    }
    EXPECT_EQ(wait_for(-1), -1);
    EXPECT_EQ(wait_for(0), -1);
    EXPECT_EQ(wait_for(other), 7);
}

TEST(SandboxLife, ExitStatusAndSignalArePassedOn)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    Command command;
    command.argv = {"sh", "-c", "exit 42"};
    EXPECT_EQ(sandbox.run(Role::lan(), command).value(), 42);
    command.argv = {"sh", "-c", "kill -TERM $$"};
    EXPECT_EQ(sandbox.run(Role::lan(), command).value(), 128 + SIGTERM);
}

TEST(SandboxLife, ProgramThatCannotBeRunIsAnErrorThatNamesIt)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    Command command;
    command.argv = {"/no/such/program"};
    const auto pid = sandbox.spawn(Role::controller(), command);
    ASSERT_FALSE(pid.ok());
    EXPECT_EQ(pid.error().text(), "running /no/such/program: No such file or directory");
    EXPECT_FALSE(pid.error().refused);
    EXPECT_EQ(sandbox.spawn(Role::controller(), Command()).error().text(),
              "starting a program: no program named");
}

TEST(SandboxLife, MissingRoleIsAnError)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 1}));
    EXPECT_EQ(sandbox.run(Role::module(2), [] { return 0; }).error().text(),
              "looking for the role module-2: this sandbox has no such role");
    for (const int modules : {-1, 5}) {
        EXPECT_EQ(Sandbox::start({state.path(), modules}).error().text(),
                  "starting a sandbox: the number of modules must be 0 to 4");
    }
}

TEST(SandboxLife, ListeningSocketsArePassedWithTheProgramsOwnProcessId)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    const UniqueFd first(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    const UniqueFd second(::open("/proc/self/status", O_RDONLY | O_CLOEXEC));
    int ends[2];
    ASSERT_EQ(pipe2(ends, 0), 0);
    const UniqueFd reading(ends[0]);
    UniqueFd writing(ends[1]);
    Command command;
    command.argv = {"sh", "-c",
                    "[ $LISTEN_PID = $$ ] && readlink /proc/$$/fd/3 && basename $(readlink /proc/$$/fd/4) &&"
                    "echo $LISTEN_FDS $LISTEN_FDNAMES && ls /proc/$$/fd"};
    // Crossed on purpose: each descriptor has the number that another is to get.
    command.listen_fds = {{second.get(), "second"}, {first.get(), "first"}};
    command.output = writing.get();
    EXPECT_EQ(sandbox.run(Role::controller(), command).value(), 0);
    writing.reset();
    char text[256] = {};
    EXPECT_GT(read(reading.get(), text, sizeof text - 1), 0);
    const std::string seen = text;
    EXPECT_NE(seen.find("/status\nnull\n2 second:first\n0\n1\n2\n3\n4\n"), std::string::npos) << seen;
}

TEST(SandboxLife, OrphansAreReaped)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    EXPECT_EQ(shell(sandbox, Role::controller(), "for i in 1 2 3 4 5; do (sleep 0 &); done"), "");
    EXPECT_TRUE(eventually([&] {
        return shell(sandbox, Role::controller(), "grep -l 'State:.Z' /proc/[0-9]*/status 2>/dev/null")
            .empty();
    }));
}

TEST(SandboxLife, MovedSandboxContinuesAndEndsOnce)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    Sandbox moved = std::move(sandbox);
    EXPECT_EQ(moved.run(Role::controller(), [] { return 5; }).value(), 5);
    EXPECT_LT(sandbox.init_pid(), 0); // NOLINT(bugprone-use-after-move): what is left is the subject
    const pid_t init = moved.init_pid();
    moved.stop();
    EXPECT_NE(kill(init, 0), 0);
}
