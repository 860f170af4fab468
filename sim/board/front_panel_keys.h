#ifndef ORVAN_SIM_BOARD_FRONT_PANEL_KEYS_H
#define ORVAN_SIM_BOARD_FRONT_PANEL_KEYS_H

namespace sim_board {

/**
 * Which lines of the keypad controller the front panel's keys are on: rows from 0 and columns from 0. Its
 * other lines lead nowhere.
 */
inline constexpr int kKeyRows = 6;
inline constexpr int kKeyColumns = 10;

} // namespace sim_board

#endif
