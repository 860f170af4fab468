#include "service_process.h"

#include <cerrno>
#include <cstdlib>
#include <signal.h>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include "service_fixture.h"
#include "support/namespaces.h"
#include "support/private_home.h"

using orvan_common::UniqueFd;

namespace orvan_test {

namespace {

// A network without any link, and a private host name, home and shared memory.
bool enter_own_namespaces()
{
    return enter_namespace(CLONE_NEWNET | CLONE_NEWUTS | CLONE_NEWNS) &&
           ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           ::mount("tmpfs", "/dev/shm", "tmpfs", MS_NOSUID | MS_NODEV, "") == 0 &&
           (new PrivateHome)->refusal().empty(); // lasts as long as the program executed next
}

} // namespace

ServiceProcess::ServiceProcess(const Start& start)
{
    int errors[2];
    EXPECT_EQ(::pipe2(errors, O_CLOEXEC), 0);
    m_errors = UniqueFd(errors[0]);
    const UniqueFd write_end(errors[1]);

    std::vector<std::string> arguments{ORVAN_SERVICE_PROGRAM};
    arguments.insert(arguments.end(), start.arguments.begin(), start.arguments.end());
    std::vector<char*> argv;
    for (auto& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);

    m_pid = ::fork();
    if (m_pid < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (m_pid != 0) {
        return;
    }
    const char* const path = std::getenv("PATH");
    ::setenv("PATH", (std::string(ORVAN_STAND_INS ":") + (path ? path : "/usr/bin:/bin")).c_str(), 1);
    ::unsetenv("ORVAN_SANDBOX");
    ::unsetenv("NOTIFY_SOCKET");
    for (const auto& [name, value] : start.environment) {
        ::setenv(name.c_str(), value.c_str(), 1);
    }
    ::dup2(write_end.get(), STDERR_FILENO);
    if (start.in_own_namespaces) {
        struct stat status {};
        if (!enter_own_namespaces() || ::stat("/proc/self/ns/net", &status) != 0) {
            std::_Exit(kNoNamespace);
        }
        ::setenv("ORVAN_SANDBOX", std::to_string(status.st_ino).c_str(), 1);
    }
    if (start.listener >= 0) {
        // dup2 onto itself would keep close-on-exec set.
        start.listener == 3 ? ::fcntl(3, F_SETFD, 0) : ::dup2(start.listener, 3);
        ::setenv("LISTEN_FDS", "1", 1);
        ::setenv("LISTEN_PID", std::to_string(::getpid()).c_str(), 1);
    }
    ::execv(ORVAN_SERVICE_PROGRAM, argv.data());
    std::_Exit(127);
}

ServiceProcess::~ServiceProcess()
{
    if (m_pid > 0) {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }
}

void ServiceProcess::signal(int number)
{
    ASSERT_GT(m_pid, 0) << "it has ended";
    EXPECT_EQ(::kill(m_pid, number), 0);
}

int ServiceProcess::exit_code(std::chrono::milliseconds bound)
{
    int status = 0;
    if (m_pid < 1 || !eventually([&] { return ::waitpid(m_pid, &status, WNOHANG) == m_pid; }, bound)) {
        return -1;
    }
    m_pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool ServiceProcess::read_more()
{
    pollfd waiting{m_errors.get(), POLLIN, 0};
    char piece[4096];
    if (::poll(&waiting, 1, 20'000) != 1) {
        return false;
    }
    const ssize_t n = ::read(m_errors.get(), piece, sizeof piece);
    if (n <= 0) {
        return false;
    }
    m_text.append(piece, static_cast<size_t>(n));
    return true;
}

std::string ServiceProcess::errors_until(const std::string& end)
{
    size_t at;
    while ((at = m_text.find(end)) == std::string::npos) {
        if (!read_more()) {
            return m_text;
        }
    }
    return m_text.substr(0, at + end.size());
}

std::string ServiceProcess::errors()
{
    while (read_more()) {
    }
    return m_text;
}

} // namespace orvan_test
