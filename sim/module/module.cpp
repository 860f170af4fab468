#include "module.h"

#include <system_error>

namespace sim_module {

Module::Module(const Options& options)
    : m_instrument(options.identity, Temperature(options.temperature, options.seed)),
      m_server(m_loop, options.address, options.port, m_instrument, m_faults, m_log),
      m_restart_time(options.restart_time),
      m_commands(options.channel, m_instrument, m_faults, m_log, m_server, m_firmware_port)
{
    if (options.firmware_port) {
        m_firmware_port.emplace(m_loop, options.address, *options.firmware_port, m_instrument.firmware());
    }
    if (!options.control_path.empty()) {
        m_control.emplace(m_loop, options.control_path,
                          [this](std::string_view line) { return m_commands.execute(line); });
    }
    // The request is still being executed, and must get its reply.
    m_instrument.set_restart_action([this] { m_loop.after({}, [this] { go_away(); }); });
}

void Module::go_away()
{
    m_server.set_away(true);
    if (m_firmware_port) {
        m_firmware_port->set_away(true);
    }
    m_loop.after(m_restart_time, [this] { come_back(); });
}

void Module::come_back()
{
    try {
        m_server.set_away(false);
    } catch (const std::system_error&) {
        // Another process took the port while it was closed.
        m_loop.after(m_restart_time, [this] { come_back(); });
        return;
    }
    if (m_firmware_port) {
        m_firmware_port->set_away(false);
    }
}

} // namespace sim_module
