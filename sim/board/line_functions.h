#ifndef ORVAN_SIM_BOARD_LINE_FUNCTIONS_H
#define ORVAN_SIM_BOARD_LINE_FUNCTIONS_H

#include <cstdint>
#include <span>
#include <string_view>

#include "board/expander_mcp23017.h"
#include "board/wiring.h"

namespace sim_board {

/** What an output line of a port expander controls, in a user's words. */
struct LineFunction {
    std::string_view name;
    uint8_t address;
    Mcp23017::Port port;
    uint8_t bit;
    std::string_view at_0;
    std::string_view at_1;
    /** The state while the pin is an input, as after a reset; empty where the latch decides. */
    std::string_view as_input;
};

/**
 * The functions of a platform's board, in the order a user would look for them. Slots are those of the board;
 * with one or two modules the last ones are used.
 */
std::span<const LineFunction> line_functions(const BoardWiring& wiring);

} // namespace sim_board

#endif
