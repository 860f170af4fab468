#include "child.h"

#include <cerrno>
#include <csignal>
#include <cstring>

#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace orvan_launcher {

Child::Child(pid_t pid) : m_pid(pid), m_pidfd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0))) {}

void Child::signal(int number) const
{
    if (is_running()) {
        ::kill(m_pid, number);
    }
}

bool Child::reap(std::chrono::milliseconds patience)
{
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + patience;
    while (is_running()) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd waiting = {m_pidfd.get(), POLLIN, 0};
        const int ready = ::poll(&waiting, 1, left > 0 ? static_cast<int>(left) : 0);
        if (ready > 0) {
            while (::waitpid(m_pid, &m_status, 0) < 0 && errno == EINTR) {
            }
            m_pidfd.reset();
        } else if (ready == 0) {
            return false;
        }
    }
    return true;
}

void Child::end(std::chrono::milliseconds patience)
{
    signal(SIGTERM);
    if (!reap(patience)) {
        signal(SIGKILL);
        reap(patience);
    }
}

std::string Child::how_it_ended() const
{
    if (WIFSIGNALED(m_status)) {
        const int number = WTERMSIG(m_status);
        return "signal " + std::to_string(number) + " (" + ::strsignal(number) + ")";
    }
    return "status " + std::to_string(WEXITSTATUS(m_status));
}

} // namespace orvan_launcher
