#ifndef ORVAN_SIM_BOARD_FRONT_PANEL_KEYS_H
#define ORVAN_SIM_BOARD_FRONT_PANEL_KEYS_H

namespace sim_board {

/**
 * Which lines of the keypad controller the front panel's keys are on; rows and columns count from 0. The
 * other lines are not connected.
 */
inline constexpr int kKeyRows = 6;
inline constexpr int kKeyColumns = 10;

} // namespace sim_board

#endif
