#include "inner_init.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>

#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "namespaces.h"
#include "network.h"
#include "setup_report.h"
#include "usb_links.h"

using orvan_common::UniqueFd;

namespace orvan_sandbox {

namespace {

Result<std::vector<UniqueFd>> set_up(const View& view, int modules)
{
    char folder[PATH_MAX];
    const bool has_folder = ::getcwd(folder, sizeof folder) != nullptr;

    // That of the machine's mount namespace: in our own it will soon be read-only.
    const UniqueFd settings(::open("/proc/sys", O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (Failure failure = unshare_namespace(CLONE_NEWNS, "mount")) {
        return *failure;
    }
    Failure failure = make_mounts_private();
    failure = failure ? failure : mount_view(view);
    failure = failure ? failure : mount_usb_links(modules);
    failure = failure ? failure : mount_proc();
    failure = failure ? failure : lock_mounts();
    failure = failure ? failure : unshare_namespace(CLONE_NEWIPC, "IPC");
    failure = failure ? failure : unshare_namespace(CLONE_NEWUTS, "UTS");
    if (failure) {
        return *failure;
    }
    // The working directory may be below what has just been mounted over.
    if (has_folder && ::chdir(folder) != 0 && ::chdir("/") != 0) {
        return system_failure("changing to /");
    }
    return build_network(modules, settings);
}

/** Closes all inherited descriptors, so that nothing waits for this process to close them. */
void close_all_but(std::vector<int> kept)
{
    std::sort(kept.begin(), kept.end());
    unsigned first = 3;
    for (const int fd : kept) {
        const unsigned number = static_cast<unsigned>(fd);
        if (number > first) {
            ::close_range(first, number - 1, 0);
        }
        first = number + 1;
    }
    ::close_range(first, ~0U, 0);
    const int null = ::open("/dev/null", O_RDWR);
    for (int fd = 0; null >= 0 && fd <= 2; ++fd) {
        ::dup2(null, fd);
    }
    if (null > 2) {
        ::close(null);
    }
}

void reset_signals()
{
    for (int number = 1; number < NSIG; ++number) {
        std::signal(number, SIG_DFL);
    }
    sigset_t set;
    ::sigemptyset(&set);
    ::sigaddset(&set, SIGCHLD);
    ::sigprocmask(SIG_SETMASK, &set, nullptr);
}

/** Reaps until the inner process ends, or for ever when there is none. */
[[noreturn]] void reap(int link, pid_t inner)
{
    sigset_t set;
    ::sigemptyset(&set);
    ::sigaddset(&set, SIGCHLD);
    while (true) {
        int status = 0;
        for (pid_t pid = 0; (pid = ::waitpid(-1, &status, WNOHANG)) > 0;) {
            if (pid == inner) {
                const bool reported =
                    ::write(link, &status, sizeof status) == static_cast<ssize_t>(sizeof status);
                ::_exit(reported ? 0 : 1);
            }
        }
        ::sigwaitinfo(&set, nullptr);
    }
}

/** Main function of the first process. Returns only in the process that continues inside. */
Begun first_process(UniqueFd link, const View& view, int modules, bool go_on_inside)
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    // The parent now writes the id maps; its reply shows that it was alive when the death signal was set.
    SetupReport report;
    if (!send_report(link.get(), report) || !receive_report(link.get(), report)) {
        ::_exit(1);
    }
    Result<std::vector<UniqueFd>> networks = set_up(view, modules);
    struct stat network = {};
    if (!networks) {
        report.set(networks.error());
    } else if (::stat("/proc/self/ns/net", &network) != 0) {
        report.set(system_failure("reading the network namespace"));
    } else {
        report.network_id = network.st_ino;
        for (const UniqueFd& fd : *networks) {
            report.network_fds[report.networks++] = fd.get();
        }
    }
    pid_t inner = -1;
    if (!report.failed && go_on_inside) {
        inner = ::fork();
        if (inner == 0) {
            Begun begun;
            begun.inside = true;
            begun.network_id = report.network_id;
            begun.networks = std::move(*networks);
            return begun;
        }
        if (inner < 0) {
            report.set(system_failure("forking inside"));
        }
    }
    reset_signals();
    ::prctl(PR_SET_NAME, "orvan-sandbox");
    std::vector<int> kept(report.network_fds, report.network_fds + report.networks);
    kept.push_back(link.get());
    close_all_but(kept);
    if (!send_report(link.get(), report) || report.failed) {
        ::_exit(1);
    }
    reap(link.get(), inner);
}

Error give_up(pid_t init, const Error& error)
{
    ::kill(init, SIGKILL);
    while (::waitpid(init, nullptr, 0) < 0 && errno == EINTR) {
    }
    return error;
}

} // namespace

Result<Begun> begin_sandbox(const View& view, int modules, bool go_on_inside)
{
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
        return system_failure("creating a socket pair");
    }
    UniqueFd outer(ends[0]);
    UniqueFd inner(ends[1]);
    const Result<pid_t> init = fork_through(CLONE_NEWUSER | CLONE_NEWPID,
                                            "creating the user and PID namespaces", [] { return Failure(); });
    if (!init) {
        return init.error();
    }
    if (init.value() == 0) {
        outer.reset();
        return first_process(std::move(inner), view, modules, go_on_inside);
    }
    inner.reset();
    SetupReport report;
    const Error lost{"setting up the sandbox", 0, "its first process ended early", "", false};
    if (!receive_report(outer.get(), report)) {
        return give_up(init.value(), lost);
    }
    if (const Failure failure = write_id_maps(init.value())) {
        return give_up(init.value(), *failure);
    }
    if (!send_report(outer.get(), report) || !receive_report(outer.get(), report)) {
        return give_up(init.value(), lost);
    }
    if (report.failed) {
        return give_up(init.value(), report.error());
    }
    Begun begun;
    begun.init = init.value();
    begun.link = std::move(outer);
    begun.network_id = report.network_id;
    begun.network_fds.assign(report.network_fds, report.network_fds + report.networks);
    return begun;
}

} // namespace orvan_sandbox
