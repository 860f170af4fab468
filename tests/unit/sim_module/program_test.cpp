// The program as a process: its ready line, its signals, its exit codes.

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>
#include <system_error>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/loopback.h"

namespace {

/** A child process with standard output and error in one pipe. */
class Process {
public:
    explicit Process(std::vector<std::string> arguments)
    {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        arguments.insert(arguments.begin(), ORVAN_MODULE_PROGRAM);
        std::vector<char*> argv;
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        m_pid = ::fork();
        if (m_pid < 0) {
            throw std::system_error(errno, std::generic_category(), "fork");
        }
        if (m_pid == 0) {
            ::dup2(ends[1], STDOUT_FILENO);
            ::dup2(ends[1], STDERR_FILENO);
            ::close(ends[0]);
            ::close(ends[1]);
            ::execv(argv[0], argv.data());
            ::_exit(127);
        }
        ::close(ends[1]);
        m_output = ends[0];
    }
    ~Process()
    {
        if (m_pid > 0) {
            ::kill(m_pid, SIGKILL);
            wait();
        }
        ::close(m_output);
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    std::string line() const { return read_line(m_output); }
    void signal(int number) const
    {
        ASSERT_GT(m_pid, 0) << "it has ended";
        ::kill(m_pid, number);
    }

    /** Exit code; -1 when a signal ended the process. */
    int wait()
    {
        if (m_pid < 1) {
            ADD_FAILURE() << "it has ended";
            return -1;
        }
        int status = 0;
        EXPECT_EQ(waitpid(m_pid, &status, 0), m_pid);
        m_pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    // One byte at a time: what follows the line stays in the pipe.
    static std::string read_line(int fd)
    {
        std::string line;
        char c = 0;
        while (c != '\n' && ::read(fd, &c, 1) == 1) {
            line += c;
        }
        return line;
    }

    pid_t m_pid = -1;
    int m_output = -1;
};

int port_of(const std::string& ready_line)
{
    return std::atoi(ready_line.c_str() + ready_line.rfind(':') + 1);
}

std::string ask(int port, const std::string& request)
{
    const int fd = orvan_test::connect_to_loopback("127.0.0.1", port);
    EXPECT_EQ(write(fd, request.data(), request.size()), static_cast<ssize_t>(request.size()));
    std::string reply = orvan_test::read_until(fd, "\n");
    ::close(fd);
    return reply;
}

const std::vector<std::string> kAnyPort = {"--channel=3", "--address=127.0.0.1", "--port=0",
                                           "--model=OVX6131P"};

} // namespace

TEST(ModuleProgram, PrintsWhereItListensAndAnswersThere)
{
    Process process(kAnyPort);
    const std::string ready = process.line();
    EXPECT_TRUE(ready.starts_with("orvan-module: channel 3, OVX6131P, 127.0.0.1:")) << ready;
    EXPECT_EQ(ask(port_of(ready), ":SYST:INF:MOD?\r\n"), "OVX6131P;+OK\r\n");
}

TEST(ModuleProgram, TerminationAndInterruptEndItCleanly)
{
    for (const int number : {SIGTERM, SIGINT}) {
        Process process(kAnyPort);
        const int port = port_of(process.line());
        const int open = orvan_test::connect_to_loopback("127.0.0.1", port);
        process.signal(number);
        EXPECT_EQ(process.wait(), 0);
        ::close(open);
    }
}

TEST(ModuleProgram, ABrokenPipeDoesNotEndIt)
{
    Process process(kAnyPort);
    const int port = port_of(process.line());
    process.signal(SIGPIPE);
    EXPECT_EQ(ask(port, ":POW?\r\n"), "5;+OK\r\n");
    process.signal(SIGTERM);
    EXPECT_EQ(process.wait(), 0);
}

TEST(ModuleProgram, APortThatIsTakenEndsItWithAMessage)
{
    const int taken = orvan_test::listen_on_loopback();
    const std::string port = std::to_string(orvan_test::local_port(taken));
    Process process({"--channel=1", "--address=127.0.0.1", "--port=" + port});
    EXPECT_EQ(process.line(), "orvan-module: 127.0.0.1:" + port + ": Address already in use\n");
    EXPECT_EQ(process.wait(), 1);
    ::close(taken);
}
