#include "ground.h"

#include <sys/socket.h>

#include "orvan_sandbox/link.h"

namespace orvan_launcher {

using namespace orvan_sandbox;

Result<Ground> Ground::sandboxed(const std::filesystem::path& state, int modules)
{
    Result<Sandbox> sandbox = Sandbox::start({state, modules});
    if (!sandbox) {
        return sandbox.error();
    }
    Ground ground;
    ground.m_environment = sandbox->environment();
    ground.m_sandbox = std::move(*sandbox);
    return ground;
}

Result<Ground> Ground::on_host(const std::filesystem::path& state)
{
    Result<Environment> environment = sandbox_environment(state, 0);
    if (!environment) {
        return environment.error();
    }
    Ground ground;
    ground.m_environment = std::move(*environment);
    return ground;
}

Result<pid_t> Ground::spawn(Role role, Command command)
{
    if (m_sandbox) {
        return m_sandbox->spawn(role, std::move(command));
    }
    command.environment.insert(m_environment.begin(), m_environment.end());
    return orvan_sandbox::spawn(Membership(), command);
}

std::string Ground::module_address(int module) const
{
    return m_sandbox ? orvan_sandbox::module_address(module) : module_loopback_address(module);
}

Result<bool> Ground::set_link(int module, bool up)
{
    const std::string step = "changing the link of module " + std::to_string(module);
    if (!m_sandbox) {
        return Error{step, 0, "there are no links without a sandbox", "", false};
    }
    Command command;
    command.argv = {find_system_program("ip"), "link", "set", kModuleOwnInterface, up ? "up" : "down"};
    const Result<int> status = m_sandbox->run(Role::module(module), command);
    if (!status) {
        return status.error();
    }
    if (status.value() != 0) {
        return Error{step, 0, "ip ended with status " + std::to_string(status.value()), "", false};
    }
    const Result<orvan_common::UniqueFd> socket = m_sandbox->make_descriptor(
        Role::controller(), [] { return ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0); });
    if (!socket) {
        return socket.error();
    }
    if (!wait_for_link(socket.value().get(), module_interface(module), up)) {
        return Error{step, 0, "the controller's end did not follow", "", false};
    }
    return true;
}

void Ground::clear_shared_memory()
{
    if (!m_sandbox) {
        return;
    }
    // On failure the old content stays, which the service overwrites.
    static_cast<void>(m_sandbox->run(Role::controller(), [] {
        std::error_code code;
        for (const auto& entry : std::filesystem::directory_iterator("/dev/shm", code)) {
            std::filesystem::remove_all(entry.path(), code);
        }
        return 0;
    }));
}

} // namespace orvan_launcher
