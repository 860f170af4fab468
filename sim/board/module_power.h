#ifndef ORVAN_SIM_BOARD_MODULE_POWER_H
#define ORVAN_SIM_BOARD_MODULE_POWER_H

#include <string>

#include "board/board.h"

namespace sim_board {

/**
 * Reports to a pipe whether the channel modules have power: "1" or "0" for the present state, and another one
 * for every later switch. It never waits for the reader. Throws std::system_error when the path can't be
 * opened, as for a pipe without a reader.
 */
void report_module_power(Board& board, const std::string& path);

} // namespace sim_board

#endif
