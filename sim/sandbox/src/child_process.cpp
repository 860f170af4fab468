#include "orvan_sandbox/child_process.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "failure.h"
#include "mount_copies.h"
#include "namespaces.h"

using orvan_common::UniqueFd;

namespace orvan_sandbox {

namespace {

constexpr int kFirstListenFd = 3;

/** \param folder_mount  of `own_folder`; empty for none */
Failure join(const Membership& membership, const UniqueFd& folder_mount, const std::string& own_folder)
{
    if (!membership.init) {
        return std::nullopt;
    }
    char folder[PATH_MAX];
    const bool has_folder = ::getcwd(folder, sizeof folder) != nullptr;
    constexpr int kinds = CLONE_NEWUSER | CLONE_NEWPID | CLONE_NEWNS | CLONE_NEWIPC | CLONE_NEWUTS;
    if (::setns(membership.init.get(), kinds) != 0 || ::setns(membership.network.get(), CLONE_NEWNET) != 0) {
        return namespace_failure("joining the namespaces of the sandbox");
    }
    if (folder_mount) {
        Failure failure = unshare_namespace(CLONE_NEWNS, "mount");
        failure = failure ? failure : attach_copy(folder_mount, own_folder);
        if (failure) {
            return failure;
        }
    }
    // Joining a mount namespace moves the process to its root.
    if (has_folder && ::chdir(folder) != 0 && ::chdir("/") != 0) {
        return system_failure("changing to /");
    }
    return std::nullopt;
}

Result<pid_t> fork_into(const Membership& membership, const std::string& own_folder = "")
{
    UniqueFd folder_mount;
    if (membership.init && !own_folder.empty()) {
        Result<UniqueFd> copy = copy_mounts_unprivileged(own_folder);
        if (!copy) {
            return copy.error();
        }
        folder_mount = std::move(*copy);
    }
    const pid_t parent = ::getpid();
    Result<pid_t> pid = fork_through(0, "starting a process in the sandbox",
                                     [&] { return join(membership, folder_mount, own_folder); });
    if (pid && pid.value() == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        // In a sandbox the parent is not visible, but there the first process dies with it.
        if (!membership.init && ::getppid() != parent) {
            ::_exit(1);
        }
    }
    return pid;
}

void reset_signals()
{
    for (int number = 1; number < NSIG; ++number) {
        std::signal(number, SIG_DFL);
    }
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

/**
 * Puts the descriptors where the program expects them; exec closes the others. The sources are copied first,
 * since one may have the number of another's target.
 */
bool arrange_descriptors(const Command& command)
{
    const int count = static_cast<int>(command.listen_fds.size());
    const int sources[] = {command.input, command.output, command.error};
    std::vector<std::pair<int, int>> moves;
    for (int target = 0; target < 3; ++target) {
        if (sources[target] >= 0) {
            moves.emplace_back(sources[target], target);
        }
    }
    for (int index = 0; index < count; ++index) {
        moves.emplace_back(command.listen_fds[static_cast<size_t>(index)].fd, kFirstListenFd + index);
    }
    for (auto& [source, target] : moves) {
        source = ::fcntl(source, F_DUPFD_CLOEXEC, kFirstListenFd + count);
        if (source < 0) {
            return false;
        }
    }
    for (const auto& [source, target] : moves) {
        if (::dup2(source, target) < 0) {
            return false;
        }
    }
    return ::close_range(static_cast<unsigned>(kFirstListenFd + count), ~0U, CLOSE_RANGE_CLOEXEC) == 0;
}

[[noreturn]] void execute(const Command& command, UniqueFd report)
{
    reset_signals();
    if (command.own_group) {
        ::setpgid(0, 0);
    }
    for (const auto& [name, value] : command.environment) {
        ::setenv(name.c_str(), value.c_str(), 1);
    }
    if (!command.listen_fds.empty()) {
        ::setenv("LISTEN_FDS", std::to_string(command.listen_fds.size()).c_str(), 1);
        ::setenv("LISTEN_PID", std::to_string(::getpid()).c_str(), 1);
        std::string names;
        for (const PassedFd& passed : command.listen_fds) {
            names += (names.empty() ? "" : ":") + passed.name;
        }
        ::setenv("LISTEN_FDNAMES", names.c_str(), 1);
    }
    std::vector<char*> words;
    words.reserve(command.argv.size() + 1);
    for (const std::string& word : command.argv) {
        words.push_back(const_cast<char*>(word.c_str()));
    }
    words.push_back(nullptr);
    // Above the descriptors that are passed on.
    report.reset(
        ::fcntl(report.get(), F_DUPFD_CLOEXEC, kFirstListenFd + static_cast<int>(command.listen_fds.size())));
    if (arrange_descriptors(command)) {
        ::execvp(words[0], words.data());
    }
    const int code = errno;
    if (::write(report.get(), &code, sizeof code) < 0) {
        ::_exit(126);
    }
    ::_exit(127);
}

} // namespace

Result<Membership> open_membership(pid_t init_pid, const std::string& network_path)
{
    Membership membership;
    membership.init.reset(static_cast<int>(::syscall(SYS_pidfd_open, init_pid, 0)));
    if (!membership.init) {
        return system_failure("looking for the sandbox's first process");
    }
    membership.network.reset(::open(network_path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!membership.network) {
        return system_failure("opening " + network_path);
    }
    return membership;
}

Result<pid_t> spawn(const Membership& membership, const Command& command)
{
    if (command.argv.empty()) {
        return Error{"starting a program", 0, "no program named", "", false};
    }
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        return system_failure("creating a pipe");
    }
    UniqueFd reading(ends[0]);
    UniqueFd writing(ends[1]);
    Result<pid_t> pid = fork_into(membership, command.own_folder);
    if (!pid) {
        return pid.error();
    }
    if (pid.value() == 0) {
        execute(command, std::move(writing));
    }
    writing.reset();
    int code = 0;
    ssize_t count = 0;
    do {
        count = ::read(reading.get(), &code, sizeof code);
    } while (count < 0 && errno == EINTR);
    if (count == static_cast<ssize_t>(sizeof code)) {
        wait_for(pid.value());
        return Error{"running " + command.argv[0], code, "", "", false};
    }
    return pid;
}

Result<pid_t> spawn_function(const Membership& membership, const std::function<int()>& body)
{
    Result<pid_t> pid = fork_into(membership);
    if (pid && pid.value() == 0) {
        reset_signals();
        ::_exit(body());
    }
    return pid;
}

Result<UniqueFd> make_descriptor(const Membership& membership, const std::function<int()>& make)
{
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
        return system_failure("creating a socket pair");
    }
    const UniqueFd outer(ends[0]);
    UniqueFd inner(ends[1]);

    int code = 0;
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    iovec data = {&code, sizeof code};
    msghdr message = {};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;

    const Result<pid_t> pid = spawn_function(membership, [&] {
        const int fd = make();
        if (fd < 0) {
            code = errno;
            message.msg_control = nullptr;
            message.msg_controllen = 0;
        } else {
            cmsghdr* header = CMSG_FIRSTHDR(&message);
            header->cmsg_level = SOL_SOCKET;
            header->cmsg_type = SCM_RIGHTS;
            header->cmsg_len = CMSG_LEN(sizeof(int));
            std::memcpy(CMSG_DATA(header), &fd, sizeof fd);
        }
        return ::sendmsg(inner.get(), &message, 0) < 0 ? 1 : 0;
    });
    if (!pid) {
        return pid.error();
    }
    inner.reset();
    ssize_t count = 0;
    do {
        count = ::recvmsg(outer.get(), &message, MSG_CMSG_CLOEXEC);
    } while (count < 0 && errno == EINTR);
    wait_for(pid.value());
    const cmsghdr* header = count > 0 ? CMSG_FIRSTHDR(&message) : nullptr;
    if (header == nullptr) {
        return Error{"making a descriptor in the sandbox", code, "", "", false};
    }
    int fd = -1;
    std::memcpy(&fd, CMSG_DATA(header), sizeof fd);
    return UniqueFd(fd);
}

int exit_code_of(int wait_status)
{
    return WIFSIGNALED(wait_status) ? 128 + WTERMSIG(wait_status) : WEXITSTATUS(wait_status);
}

int wait_for(pid_t pid)
{
    // Below 1 waitpid() waits for any child.
    if (pid < 1) {
        return -1;
    }
    int status = 0;
    pid_t waited = -1;
    do {
        waited = ::waitpid(pid, &status, 0);
    } while (waited < 0 && errno == EINTR);
    return waited == pid ? exit_code_of(status) : -1;
}

} // namespace orvan_sandbox
