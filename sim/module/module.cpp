#include "module.h"

namespace sim_module {

Module::Module(const Options& options)
    : m_instrument(options.identity, Temperature(options.temperature, options.seed)),
      m_server(m_loop, options.address, options.port, m_instrument, m_faults, m_log),
      m_commands(options.channel, m_instrument, m_faults, m_log, m_server)
{
    if (!options.control_path.empty()) {
        m_control.emplace(m_loop, options.control_path,
                          [this](std::string_view line) { return m_commands.execute(line); });
    }
}

} // namespace sim_module
