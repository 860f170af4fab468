#ifndef ORVAN_SIM_LAUNCHER_BOARD_CLIENT_H
#define ORVAN_SIM_LAUNCHER_BOARD_CLIENT_H

#include <filesystem>
#include <string>

namespace orvan_launcher {

/**
 * One verb to the control socket of the service's board. The reply is "ok" and lines behind it, or one
 * "error TEXT"; empty when nobody answers within two seconds.
 */
std::string ask_board(const std::filesystem::path& socket, const std::string& verb);

} // namespace orvan_launcher

#endif
