#ifndef ORVAN_SIM_LAUNCHER_BOARD_CLIENT_H
#define ORVAN_SIM_LAUNCHER_BOARD_CLIENT_H

#include <filesystem>
#include <string>

namespace orvan_launcher {

/**
 * Sends one verb to the control socket of the service's board. The reply is "ok" and possibly more lines, or
 * one "error TEXT"; empty when there is no answer within two seconds.
 */
std::string ask_board(const std::filesystem::path& socket, const std::string& verb);

} // namespace orvan_launcher

#endif
