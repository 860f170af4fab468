#ifndef ORVAN_SIM_LAUNCHER_CHILD_H
#define ORVAN_SIM_LAUNCHER_CHILD_H

#include <chrono>
#include <string>

#include <sys/types.h>

#include <unique_fd.h>

namespace orvan_launcher {

/** A child process that is waited for once, through a descriptor that can be polled. */
class Child {
public:
    Child() = default;
    explicit Child(pid_t pid);
    Child(Child&&) = default;
    Child& operator=(Child&&) = default;

    bool is_running() const { return static_cast<bool>(m_pidfd); }
    pid_t pid() const { return m_pid; }
    /** Readable once the process has ended; -1 when there is none. */
    int descriptor() const { return m_pidfd.get(); }

    void signal(int number) const;

    /** Waits at most that long. True when the process has ended; status() is then valid. */
    bool reap(std::chrono::milliseconds patience);

    /** Sends SIGTERM, waits, then SIGKILL. */
    void end(std::chrono::milliseconds patience);

    /** Wait status of the last process, as from waitpid(). */
    int status() const { return m_status; }
    /** "status 3" or "signal 9 (Killed)". */
    std::string how_it_ended() const;

private:
    pid_t m_pid = -1;
    orvan_common::UniqueFd m_pidfd;
    int m_status = 0;
};

} // namespace orvan_launcher

#endif
