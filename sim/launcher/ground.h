#ifndef ORVAN_SIM_LAUNCHER_GROUND_H
#define ORVAN_SIM_LAUNCHER_GROUND_H

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "orvan_sandbox/sandbox.h"

namespace orvan_launcher {

/** Where the processes of an instrument run: in the roles of a sandbox, or all on the host. */
class Ground {
public:
    static orvan_sandbox::Result<Ground> sandboxed(const std::filesystem::path& state, int modules);
    static orvan_sandbox::Result<Ground> on_host(const std::filesystem::path& state);

    bool has_sandbox() const { return m_sandbox.has_value(); }
    orvan_sandbox::Sandbox* sandbox() { return m_sandbox ? &*m_sandbox : nullptr; }
    const orvan_sandbox::Environment& environment() const { return m_environment; }

    orvan_sandbox::Result<pid_t> spawn(orvan_sandbox::Role role, orvan_sandbox::Command command);

    /** Address that a module's server listens on. */
    std::string module_address(int module) const;

    /**
     * Takes the module's end of its link down or up, and waits until the controller's end has noticed,
     * usually within a second. An error without a sandbox.
     */
    orvan_sandbox::Result<bool> set_link(int module, bool up);

    /**
     * Clears the sandbox's shared memory, as a power cycle of the controller does. No effect without a
     * sandbox, where that memory is the host's.
     */
    void clear_shared_memory();

    /** Ends the sandbox and everything left in it. */
    void end() { m_sandbox.reset(); }

private:
    std::optional<orvan_sandbox::Sandbox> m_sandbox;
    orvan_sandbox::Environment m_environment;
};

} // namespace orvan_launcher

#endif
