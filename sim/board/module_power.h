#ifndef ORVAN_SIM_BOARD_MODULE_POWER_H
#define ORVAN_SIM_BOARD_MODULE_POWER_H

#include <string>

#include "board/board.h"

namespace sim_board {

/**
 * Tells whoever reads a pipe whether the channel modules have power: "1" or "0" for what holds now, and
 * another one for every switch from then on. It never waits for the reader. Throws std::system_error when
 * the path can't be opened for that, as a pipe that nobody reads.
 */
void report_module_power(Board& board, const std::string& path);

} // namespace sim_board

#endif
