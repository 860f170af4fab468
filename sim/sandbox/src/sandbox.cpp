#include "orvan_sandbox/sandbox.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <sched.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "failure.h"
#include "inner_init.h"

using orvan_common::UniqueFd;

namespace orvan_sandbox {

namespace {

Failure check(const Options& options)
{
    if (options.modules < 0 || options.modules > kMaxModules) {
        return Error{"starting a sandbox", 0, "the number of modules must be 0 to 4", "", false};
    }
    return std::nullopt;
}

Error unknown_role(Role role)
{
    return Error{"looking for the role " + role.name(), 0, "this sandbox has no such role", "", false};
}

/**
 * The part of the original process when another continues inside: it represents that one to its own parent.
 */
[[noreturn]] void stand_for(const Begun& begun)
{
    // The terminal sends these to the inner process as well, which decides what to do.
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGQUIT, SIG_IGN);
    int status = 0;
    ssize_t count = 0;
    do {
        count = ::read(begun.link.get(), &status, sizeof status);
    } while (count < 0 && errno == EINTR);
    wait_for(begun.init);
    if (count != static_cast<ssize_t>(sizeof status)) {
        ::_exit(128 + SIGKILL);
    }
    if (WIFSIGNALED(status)) {
        std::signal(WTERMSIG(status), SIG_DFL);
        std::raise(WTERMSIG(status));
    }
    ::_exit(exit_code_of(status));
}

} // namespace

Result<Sandbox> Sandbox::start(const Options& options)
{
    if (const Failure failure = check(options)) {
        return *failure;
    }
    Result<std::filesystem::path> state = make_state_directory(options.state);
    if (!state) {
        return state.error();
    }
    // Checked before anything is set up; the variable of the namespace is added below.
    if (Result<Environment> environment = sandbox_environment(*state, 0); !environment) {
        return environment.error();
    }
    Result<Begun> begun = begin_sandbox(view_for_caller(*state), options.modules, false);
    if (!begun) {
        return begun.error();
    }
    Sandbox sandbox;
    sandbox.m_init = begun->init;
    sandbox.m_link = std::move(begun->link);
    sandbox.m_network_id = begun->network_id;
    sandbox.m_state = *state;
    sandbox.m_network_fds = begun->network_fds;
    sandbox.m_environment = *sandbox_environment(*state, begun->network_id);
    for (int index = 0; index < role_count(options.modules); ++index) {
        Result<Membership> membership =
            open_membership(sandbox.m_init, sandbox.network_path(Role::at(index)));
        if (!membership) {
            return membership.error();
        }
        sandbox.m_roles.push_back(std::move(*membership));
    }
    return sandbox;
}

Sandbox& Sandbox::operator=(Sandbox&& other) noexcept
{
    stop();
    m_init = std::move(other.m_init);
    m_link = std::move(other.m_link);
    m_network_id = other.m_network_id;
    m_state = std::move(other.m_state);
    m_environment = std::move(other.m_environment);
    m_network_fds = std::move(other.m_network_fds);
    m_roles = std::move(other.m_roles);
    m_children = std::move(other.m_children);
    return *this;
}

Sandbox::~Sandbox()
{
    stop();
}

void Sandbox::stop()
{
    if (m_init < 1) {
        return;
    }
    ::kill(m_init, SIGKILL);
    // The first process ends only when its namespace is empty, and our own children in there count until
    // reaped.
    for (const UniqueFd& child : m_children) {
        while (::waitid(P_PIDFD, static_cast<id_t>(child.get()), nullptr, WEXITED) != 0 && errno == EINTR) {
        }
    }
    wait_for(m_init);
    m_init = -1;
    m_children.clear();
    m_roles.clear();
    m_link.reset();
}

Result<pid_t> Sandbox::keep(Result<pid_t> started)
{
    if (started) {
        std::erase_if(m_children, [](const UniqueFd& child) {
            siginfo_t info = {};
            return ::waitid(P_PIDFD, static_cast<id_t>(child.get()), &info, WEXITED | WNOHANG | WNOWAIT) !=
                       0 &&
                   errno == ECHILD;
        });
        m_children.emplace_back(static_cast<int>(::syscall(SYS_pidfd_open, started.value(), 0)));
    }
    return started;
}

Result<pid_t> Sandbox::spawn(Role role, Command command)
{
    if (!has(role)) {
        return unknown_role(role);
    }
    command.environment.insert(m_environment.begin(), m_environment.end());
    return keep(orvan_sandbox::spawn(m_roles[static_cast<size_t>(role.index())], command));
}

Result<pid_t> Sandbox::spawn(Role role, const std::function<int()>& body)
{
    if (!has(role)) {
        return unknown_role(role);
    }
    return keep(spawn_function(m_roles[static_cast<size_t>(role.index())], [&] {
        for (const auto& [name, value] : m_environment) {
            ::setenv(name.c_str(), value.c_str(), 1);
        }
        return body();
    }));
}

Result<UniqueFd> Sandbox::make_descriptor(Role role, const std::function<int()>& make)
{
    if (!has(role)) {
        return unknown_role(role);
    }
    return orvan_sandbox::make_descriptor(m_roles[static_cast<size_t>(role.index())], make);
}

Result<int> Sandbox::run(Role role, Command command)
{
    const Result<pid_t> pid = spawn(role, std::move(command));
    if (!pid) {
        return pid.error();
    }
    return wait_for(pid.value());
}

Result<int> Sandbox::run(Role role, const std::function<int()>& body)
{
    const Result<pid_t> pid = spawn(role, body);
    if (!pid) {
        return pid.error();
    }
    return wait_for(pid.value());
}

std::string Sandbox::network_path(Role role) const
{
    return "/proc/" + std::to_string(m_init) + "/fd/" +
           std::to_string(m_network_fds[static_cast<size_t>(role.index())]);
}

Result<Inside> enter(const Options& options)
{
    if (const Failure failure = check(options)) {
        return *failure;
    }
    const Result<std::filesystem::path> state = make_state_directory(options.state);
    if (!state) {
        return state.error();
    }
    if (const Result<Environment> environment = sandbox_environment(state.value(), 0); !environment) {
        return environment.error();
    }
    // Otherwise both processes would write the buffered text.
    std::fflush(nullptr);
    Result<Begun> begun = begin_sandbox(view_for_caller(state.value()), options.modules, true);
    if (!begun) {
        return begun.error();
    }
    if (!begun->inside) {
        stand_for(*begun);
    }
    const Result<Environment> environment = sandbox_environment(state.value(), begun->network_id);
    for (const auto& [name, value] : environment.value()) {
        ::setenv(name.c_str(), value.c_str(), 1);
    }
    Inside inside;
    inside.m_networks = std::move(begun->networks);
    return inside;
}

RoleScope::RoleScope(const Inside& inside, Role role)
{
    if (role.index() >= static_cast<int>(inside.m_networks.size())) {
        return;
    }
    m_back.reset(::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC));
    m_entered =
        m_back && ::setns(inside.m_networks[static_cast<size_t>(role.index())].get(), CLONE_NEWNET) == 0;
}

RoleScope::~RoleScope()
{
    if (m_entered) {
        ::setns(m_back.get(), CLONE_NEWNET);
    }
}

} // namespace orvan_sandbox
