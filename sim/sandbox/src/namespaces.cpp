#include "namespaces.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <fcntl.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "setup_report.h"
#include <unique_fd.h>

using orvan_common::UniqueFd;

namespace orvan_sandbox {

namespace {

Failure write_file(const std::string& path, const std::string& text, const char* step)
{
    const UniqueFd file(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
    if (!file || ::write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        return namespace_failure(step);
    }
    return std::nullopt;
}

/** The caller's own ids, each mapped to itself. */
std::string identity_map(const char* own_map)
{
    std::ifstream file(own_map);
    std::ostringstream text;
    unsigned long inside = 0;
    unsigned long outside = 0;
    unsigned long count = 0;
    while (file >> inside >> outside >> count) {
        text << inside << ' ' << inside << ' ' << count << '\n';
    }
    return text.str();
}

/** A kernel built without a kind of namespace returns EINVAL. */
Error creation_failure(const std::string& step)
{
    Error error = namespace_failure(step);
    if (error.code == EINVAL) {
        error.refused = true;
        error.hint = "the kernel was built without it";
    }
    return error;
}

/**
 * ThreadSanitizer starts a thread in a forked child, but only a single-threaded process can join a user
 * namespace; its handler is skipped in such a build.
 */
pid_t fork_with_one_thread()
{
#ifdef __SANITIZE_THREAD__
    return _Fork();
#else
    return ::fork();
#endif
}

} // namespace

Result<pid_t> fork_through(unsigned long clone_flags, const std::string& step,
                           const std::function<Failure()>& prepare)
{
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        return system_failure("creating a pipe");
    }
    UniqueFd reading(ends[0]);
    UniqueFd writing(ends[1]);
    const pid_t between = fork_with_one_thread();
    if (between < 0) {
        return system_failure("forking");
    }
    if (between == 0) {
        SetupReport report;
        if (const Failure failure = prepare()) {
            report.set(*failure);
        } else {
            // The raw call: only the kernel's clone makes the child a sibling.
            const long pid = ::syscall(SYS_clone, clone_flags | CLONE_PARENT | SIGCHLD, 0, 0, 0, 0);
            if (pid == 0) {
                return 0;
            }
            report.pid = static_cast<pid_t>(pid);
            if (pid < 0) {
                report.set(creation_failure(step));
            }
        }
        send_report(writing.get(), report);
        ::_exit(0);
    }
    writing.reset();
    SetupReport report;
    const bool received = receive_report(reading.get(), report);
    while (::waitpid(between, nullptr, 0) < 0 && errno == EINTR) {
    }
    if (!received) {
        return Error{step, 0, "the process in between ended", "", false};
    }
    if (report.failed) {
        return report.error();
    }
    return report.pid;
}

Failure write_id_maps(pid_t pid)
{
    const std::string folder = "/proc/" + std::to_string(pid);
    if (::geteuid() == 0 &&
        !write_file(folder + "/uid_map", identity_map("/proc/self/uid_map"), "writing the user map")) {
        return write_file(folder + "/gid_map", identity_map("/proc/self/gid_map"), "writing the group map");
    }
    if (Failure failure = write_file(folder + "/setgroups", "deny", "denying setgroups")) {
        return failure;
    }
    if (Failure failure = write_file(folder + "/uid_map", "0 " + std::to_string(::geteuid()) + " 1\n",
                                     "writing the user map")) {
        return failure;
    }
    return write_file(folder + "/gid_map", "0 " + std::to_string(::getegid()) + " 1\n",
                      "writing the group map");
}

Failure lock_mounts()
{
    std::error_code code;
    const std::string own_pid = std::filesystem::read_symlink("/proc/self", code);
    int ends[2];
    if (code || ::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
        return system_failure("preparing a second user namespace");
    }
    UniqueFd own_end(ends[0]);
    UniqueFd helpers_end(ends[1]);
    // The maps are written from the namespace that this process is about to leave.
    const pid_t helper = fork_with_one_thread();
    if (helper < 0) {
        return system_failure("forking");
    }
    SetupReport report;
    if (helper == 0) {
        own_end.reset();
        if (receive_report(helpers_end.get(), report)) {
            if (const Failure failure = write_id_maps(std::stoi(own_pid))) {
                report.set(*failure);
            }
            send_report(helpers_end.get(), report);
        }
        ::_exit(0);
    }
    helpers_end.reset();
    Failure failure = unshare_namespace(CLONE_NEWUSER | CLONE_NEWNS, "second user");
    if (!failure && (!send_report(own_end.get(), report) || !receive_report(own_end.get(), report))) {
        failure = Error{"creating the second user namespace", 0, "its helper ended", "", false};
    } else if (!failure && report.failed) {
        failure = report.error();
    }
    own_end.reset();
    while (::waitpid(helper, nullptr, 0) < 0 && errno == EINTR) {
    }
    return failure;
}

Failure unshare_namespace(int flag, const char* name)
{
    if (::unshare(flag) != 0) {
        return creation_failure(std::string("creating the ") + name + " namespace");
    }
    return std::nullopt;
}

} // namespace orvan_sandbox
