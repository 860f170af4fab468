#ifndef ORVAN_SIM_BOARD_BOARD_STATE_H
#define ORVAN_SIM_BOARD_BOARD_STATE_H

#include <string>

#include "board/board.h"

namespace sim_board {

/**
 * The state of everything on the board, in a user's words, one line each:
 *
 *     board                             benchtop
 *     RF output, slot 1                 on
 *     RF output, slot 4                 off (its pin is an input)
 *     modulation, slot 1                external AM: path relay at 1, input relay set
 *     fan                               75 % of full speed, drive value 0x3f
 *     power button                      released
 *     expander 0x20                     latch A 0x20 B 0x00, inputs A 0x00 B 0x6e, pins A 0x20 B 0x20
 *
 * Makes no access that a chip would notice. A function shows the state of its output latch, which is what the
 * controller has set; a pin that is an input, and so not driven, is marked.
 */
std::string board_state(Board& board);

} // namespace sim_board

#endif
