#ifndef ORVAN_SIM_LAUNCHER_MODULE_CONTROL_H
#define ORVAN_SIM_LAUNCHER_MODULE_CONTROL_H

#include <filesystem>
#include <string>

namespace orvan_launcher {

/**
 * Sends one command to a module's control socket. The reply is one line, "ok", "ok VALUE", "error TEXT" or
 * text; to the command `log` "ok N" and N lines. Returns the lines of the reply; empty when there is no
 * answer within a second.
 */
std::string ask_module(const std::filesystem::path& socket, const std::string& command);

/** True when the module accepts connections there. */
bool module_answers(const std::filesystem::path& socket);

} // namespace orvan_launcher

#endif
