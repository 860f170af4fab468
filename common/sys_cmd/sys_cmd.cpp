#include "sys_cmd.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// posix_spawn rather than fork: forking a multi-threaded process copies locks in an arbitrary state.
class Spawn {
public:
    Spawn()
    {
        ::posix_spawnattr_init(&m_attributes);
        ::posix_spawn_file_actions_init(&m_actions);
    }
    ~Spawn()
    {
        ::posix_spawn_file_actions_destroy(&m_actions);
        ::posix_spawnattr_destroy(&m_attributes);
    }
    Spawn(const Spawn&) = delete;
    Spawn& operator=(const Spawn&) = delete;

    // Starts the shell; -1 on failure. With a negative output the caller's standard output is used.
    pid_t start(const char* command, int output)
    {
        sigset_t none;
        sigset_t all;
        ::sigemptyset(&none);
        ::sigfillset(&all);
        char shell[] = "sh";
        char option[] = "-c";
        char* const arguments[] = {shell, option, const_cast<char*>(command), nullptr};
        pid_t pid = -1;

        // Output before input: with low numbers free in the caller, the output descriptor may itself be 0.
        const bool ready =
            (output < 0 || ::posix_spawn_file_actions_adddup2(&m_actions, output, STDOUT_FILENO) == 0) &&
            ::posix_spawn_file_actions_addopen(&m_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0) == 0 &&
            ::posix_spawn_file_actions_addclosefrom_np(&m_actions, STDERR_FILENO + 1) == 0 &&
            ::posix_spawnattr_setsigmask(&m_attributes, &none) == 0 &&
            ::posix_spawnattr_setsigdefault(&m_attributes, &all) == 0 &&
            ::posix_spawnattr_setflags(&m_attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF) == 0;
        if (!ready || ::posix_spawn(&pid, "/bin/sh", &m_actions, &m_attributes, arguments, environ) != 0) {
            return -1;
        }
        return pid;
    }

private:
    posix_spawnattr_t m_attributes;
    posix_spawn_file_actions_t m_actions;
};

int wait_for(pid_t pid)
{
    int status = 0;
    pid_t ended = 0;
    do {
        ended = ::waitpid(pid, &status, 0);
    } while (ended < 0 && errno == EINTR);
    if (ended < 0) {
        return -1;
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

// Collects output in a buffer, reserving room for the terminating zero, and drops the excess.
class OutputBuffer {
public:
    OutputBuffer(char* buffer, size_t size) : m_place(buffer), m_room(size - 1) { *m_place = '\0'; }

    void append(const char* data, size_t length)
    {
        length = std::min(length, m_room);
        std::memcpy(m_place, data, length);
        m_place += length;
        m_room -= length;
        *m_place = '\0';
    }

private:
    char* m_place;
    size_t m_room;
};

// Reads what a non-blocking pipe currently holds; false at its end. At most the capacity of a pipe,
// or a background process that writes continuously would keep it from ever returning.
bool read_held(int pipe, OutputBuffer& output)
{
    constexpr size_t kPipeCapacity = 65536;
    char piece[4096];
    for (size_t taken = 0; taken < kPipeCapacity;) {
        const ssize_t count = ::read(pipe, piece, sizeof piece);
        if (count > 0) {
            output.append(piece, static_cast<size_t>(count));
            taken += static_cast<size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            return count < 0 && errno == EAGAIN;
        }
    }
    return true;
}

// Reads until the end of the output or of the process. Stopping only at the end of the process would
// lose the last output; stopping only at the end of the output would wait for background processes.
void collect(int pipe, int process, OutputBuffer& output)
{
    pollfd events[] = {{pipe, POLLIN, 0}, {process, POLLIN, 0}};
    bool ended = false;
    while (read_held(pipe, output) && !ended) {
        while (::poll(events, process < 0 ? 1 : 2, -1) < 0 && errno == EINTR) {
        }
        ended = events[1].revents != 0;
    }
}

} // namespace

int run_system_cmd(const char* command)
{
    if (command == nullptr) {
        return -1;
    }
    const pid_t pid = Spawn().start(command, -1);
    return pid < 0 ? -1 : wait_for(pid);
}

int read_system_cmd(const char* command, char* buffer, size_t size)
{
    if (buffer == nullptr || size == 0) {
        return -1;
    }
    OutputBuffer output(buffer, size);
    int pipe[2];
    if (command == nullptr || ::pipe2(pipe, O_CLOEXEC) != 0) {
        return -1;
    }
    ::fcntl(pipe[0], F_SETFL, O_NONBLOCK);
    const pid_t pid = Spawn().start(command, pipe[1]);
    ::close(pipe[1]);
    int result = -1;
    if (pid >= 0) {
        // By number: this C library's header declares the call without C linkage.
        const int process = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
        collect(pipe[0], process, output);
        if (process >= 0) {
            ::close(process);
        }
        result = wait_for(pid);
    }
    ::close(pipe[0]);
    return result;
}
