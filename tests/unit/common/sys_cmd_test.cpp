#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "temp_folder.h"
#include <sys_cmd.h>

namespace {

struct Result {
    int code;
    std::string output;
};

Result read_command(const std::string& command, size_t size = 256)
{
    std::vector<char> buffer(size, '?');
    const int code = read_system_cmd(command.c_str(), buffer.data(), size);
    EXPECT_NE(std::memchr(buffer.data(), 0, size), nullptr) << "no terminating zero";
    return {code, buffer.data()};
}

std::ptrdiff_t open_descriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                         std::filesystem::directory_iterator());
}

// --- results ---------------------------------------------------------------------------------

TEST(SysCmd, ResultIsTheExitCode)
{
    for (int code : {0, 1, 3, 255}) {
        const std::string command = "exit " + std::to_string(code);
        EXPECT_EQ(run_system_cmd(command.c_str()), code);
        EXPECT_EQ(read_command(command).code, code);
    }
}

TEST(SysCmd, CommandThatIsNotFoundReturns127)
{
    EXPECT_EQ(run_system_cmd("/nonexistent/he_get_net_config.sh 2>/dev/null"), 127);
    EXPECT_EQ(read_command("no-such-command-anywhere 2>/dev/null").code, 127);
}

TEST(SysCmd, FileThatIsNotExecutableReturns126)
{
    EXPECT_EQ(run_system_cmd("/dev/null 2>/dev/null"), 126);
}

TEST(SysCmd, DeathBySignalReturns128PlusItsNumber)
{
    EXPECT_EQ(run_system_cmd("kill -KILL $$"), 128 + SIGKILL);
    EXPECT_EQ(read_command("echo before; kill -TERM $$").code, 128 + SIGTERM);
    EXPECT_EQ(read_command("echo before; kill -TERM $$").output, "before\n");
}

TEST(SysCmd, NothingRunsWithoutACommandOrABuffer)
{
    char buffer[8] = "?";
    EXPECT_EQ(run_system_cmd(nullptr), -1);
    EXPECT_EQ(read_system_cmd(nullptr, buffer, sizeof buffer), -1);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(read_system_cmd("exit 0", nullptr, 8), -1);
    EXPECT_EQ(read_system_cmd("exit 0", buffer, 0), -1);
}

TEST(SysCmd, IgnoredChildrenHaveNoKnownResult)
{
    std::signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(run_system_cmd("exit 0"), -1);
    EXPECT_EQ(read_command("echo x").code, -1);
    std::signal(SIGCHLD, SIG_DFL);
}

TEST(SysCmd, LineIsRunByAShell)
{
    EXPECT_EQ(read_command("for i in 1 2; do printf %s- \"$i\"; done | tr 1 3 && echo x").output, "3-2-x\n");
}

TEST(SysCmd, CommandsAreFoundAlongThePathOfTheCaller)
{
    const std::string before = getenv("PATH");
    ASSERT_EQ(setenv("PATH", "/nonexistent", 1), 0);
    EXPECT_EQ(run_system_cmd("ls 2>/dev/null"), 127);
    ASSERT_EQ(setenv("PATH", before.c_str(), 1), 0);
    EXPECT_EQ(run_system_cmd("ls >/dev/null"), 0);
}

// --- output ----------------------------------------------------------------------------------

TEST(SysCmd, OutputIsReturnedUnchanged)
{
    EXPECT_EQ(read_command("printf 'Dynamic eth0\\n a\\r\\n'").output, "Dynamic eth0\n a\r\n");
    EXPECT_EQ(read_command("exit 0").output, "");
    EXPECT_EQ(read_command("echo out; exit 5").output, "out\n");
}

TEST(SysCmd, OutputIsCutAtTheBuffer)
{
    EXPECT_EQ(read_command("printf 12345678", 9).output, "12345678");
    EXPECT_EQ(read_command("printf 12345678", 8).output, "1234567");
    EXPECT_EQ(read_command("printf 12345678", 1).output, "");
}

TEST(SysCmd, BytesAfterTheBufferAreNotTouched)
{
    char buffer[12];
    std::memset(buffer, '?', sizeof buffer);
    EXPECT_EQ(read_system_cmd("printf 123456789", buffer, 4), 0);
    EXPECT_EQ(std::string(buffer, sizeof buffer), std::string("123\0????????", 12));
}

TEST(SysCmd, OutputPastTheBufferIsDrainedSoThatTheCommandEnds)
{
    // More than a pipe holds: if the reader stopped, the command would block or die of SIGPIPE.
    const Result result = read_command("head -c 1000000 /dev/zero | tr '\\0' x && exit 7");
    EXPECT_EQ(result.code, 7);
    EXPECT_EQ(result.output, std::string(255, 'x'));
}

TEST(SysCmd, LongOutputIsReturnedWhole)
{
    const Result result = read_command("head -c 300000 /dev/zero | tr '\\0' x", 300001);
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.output, std::string(300000, 'x'));
}

TEST(SysCmd, OutputWrittenJustBeforeTheEndIsNotLost)
{
    for (int round = 0; round < 50; ++round) {
        ASSERT_EQ(read_command("printf end").output, "end") << round;
    }
}

TEST(SysCmd, ErrorOutputIsNotCaptured)
{
    testing::internal::CaptureStderr();
    EXPECT_EQ(read_command("echo out; echo err >&2").output, "out\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "err\n");
}

TEST(SysCmd, RunInheritsTheCallersOutput)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(run_system_cmd("echo out"), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "out\n");
}

TEST(SysCmd, BackgroundProcessIsNotWaitedFor)
{
    const TempFolder folder;
    const std::string pipe = folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const Result result = read_command("cat " + pipe + " & echo started; exit 4");
    EXPECT_EQ(result.code, 4);
    EXPECT_EQ(result.output, "started\n");
    // The background process waits until the pipe is opened, and ends when it is closed.
    ::close(::open(pipe.c_str(), O_WRONLY | O_CLOEXEC));
}

TEST(SysCmd, BackgroundProcessThatNeverStopsWritingIsNotWaitedFor)
{
    const Result result = read_command("yes 2>/dev/null & exit 4", 32);
    // The closed pipe ends it.
    EXPECT_EQ(result.code, 4);
}

// --- surroundings of the command -------------------------------------------------------------

TEST(SysCmd, InputIsEmpty)
{
    int pipe[2];
    ASSERT_EQ(pipe2(pipe, O_CLOEXEC), 0);
    ASSERT_EQ(write(pipe[1], "typed", 5), 5);
    ::close(pipe[1]);
    const int before = ::dup(STDIN_FILENO);
    ::dup2(pipe[0], STDIN_FILENO);
    const Result result = read_command("cat; echo end");
    const int code = run_system_cmd("[ -z \"$(cat)\" ]");
    ::dup2(before, STDIN_FILENO);
    ::close(before);
    ::close(pipe[0]);
    EXPECT_EQ(result.output, "end\n");
    EXPECT_EQ(code, 0);
}

TEST(SysCmd, DescriptorsOfTheCallerDoNotReachTheCommand)
{
    constexpr int kSocket = 77;
    ASSERT_EQ(dup2(STDERR_FILENO, kSocket), kSocket);
    const char* command = "[ -e /proc/$$/fd/77 ] && exit 1; [ -e /proc/$$/fd/3 ] && exit 2; exit 0";
    EXPECT_EQ(run_system_cmd(command), 0);
    EXPECT_EQ(read_command(command).code, 0);
    ::close(kSocket);
}

TEST(SysCmd, WorksWhenTheCallersStandardDescriptorsAreClosed)
{
    const int input = ::dup(STDIN_FILENO);
    const int output = ::dup(STDOUT_FILENO);
    const int error = ::dup(STDERR_FILENO);
    Result results[4];
    int next = 0;
    ::close(STDIN_FILENO);
    results[next++] = read_command("cat; echo a");
    ::close(STDOUT_FILENO);
    results[next++] = read_command("cat; echo a");
    ::close(STDERR_FILENO);
    results[next++] = read_command("cat; echo a");
    ::dup2(input, STDIN_FILENO);
    results[next++] = read_command("cat; echo a");
    ::dup2(output, STDOUT_FILENO);
    ::dup2(error, STDERR_FILENO);
    for (int descriptor : {input, output, error}) {
        ::close(descriptor);
    }
    for (const Result& result : results) {
        EXPECT_EQ(result.code, 0);
        EXPECT_EQ(result.output, "a\n");
    }
}

TEST(SysCmd, SignalsOfTheCommandAreAtTheirDefaults)
{
    std::signal(SIGPIPE, SIG_IGN);
    sigset_t term;
    sigset_t before;
    sigemptyset(&term);
    sigaddset(&term, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &term, &before);
    EXPECT_EQ(run_system_cmd("kill -PIPE $$"), 128 + SIGPIPE);
    EXPECT_EQ(run_system_cmd("kill -TERM $$"), 128 + SIGTERM);
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    EXPECT_EQ(std::signal(SIGPIPE, SIG_DFL), SIG_IGN) << "the caller's are unchanged";
}

TEST(SysCmd, LeavesNoChildAndNoDescriptor)
{
    const auto before = open_descriptors();
    for (int round = 0; round < 20; ++round) {
        run_system_cmd("exit 1");
        read_command("echo x");
        read_command("kill -KILL $$");
    }
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(SysCmd, NothingRunsWithoutDescriptorsLeft)
{
    std::vector<int> taken;
    int descriptor = -1;
    while ((descriptor = ::open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0 && taken.size() < 100000) {
        taken.push_back(descriptor);
    }
    char buffer[8] = "?";
    const int code = read_system_cmd("exit 0", buffer, sizeof buffer);
    for (int one : taken) {
        ::close(one);
    }
    EXPECT_EQ(code, -1);
    EXPECT_STREQ(buffer, "");
}

std::atomic<int> g_alarms{0};

TEST(SysCmd, SignalsOfTheCallerDisturbNothing)
{
    struct sigaction action = {};
    action.sa_handler = [](int) { ++g_alarms; };
    ASSERT_EQ(sigaction(SIGALRM, &action, nullptr), 0) << "without SA_RESTART";
    const itimerval often = {{0, 1000}, {0, 1000}};
    const itimerval never = {};
    setitimer(ITIMER_REAL, &often, nullptr);
    const Result read = read_command("echo a; sleep 0.2; echo b; exit 6");
    const int run = run_system_cmd("sleep 0.2; exit 6");
    setitimer(ITIMER_REAL, &never, nullptr);
    std::signal(SIGALRM, SIG_DFL);
    EXPECT_GT(g_alarms, 10);
    EXPECT_EQ(read.code, 6);
    EXPECT_EQ(read.output, "a\nb\n");
    EXPECT_EQ(run, 6);
}

TEST(SysCmd, ThreadsGetTheirOwnOutputAndResult)
{
    std::vector<std::thread> threads;
    for (int number = 0; number < 8; ++number) {
        threads.emplace_back([number] {
            const std::string text = std::to_string(number);
            for (int round = 0; round < 20; ++round) {
                const Result result = read_command("echo " + text + "; exit " + text);
                EXPECT_EQ(result.output, text + "\n");
                EXPECT_EQ(result.code, number);
                EXPECT_EQ(run_system_cmd(("exit " + text).c_str()), number);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
}

} // namespace
