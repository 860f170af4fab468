#ifndef ORVAN_SIM_BOARD_LINE_FUNCTIONS_H
#define ORVAN_SIM_BOARD_LINE_FUNCTIONS_H

#include <cstdint>
#include <span>
#include <string_view>

#include "board/expander_mcp23017.h"
#include "board/wiring.h"

namespace sim_board {

/** What the board hangs on an output line of a port expander, in a user's words. */
struct LineFunction {
    std::string_view name;
    uint8_t address;
    Mcp23017::Port port;
    uint8_t bit;
    std::string_view at_0;
    std::string_view at_1;
    /** What holds while the pin is an input, as after a reset; empty where that is what the latch says. */
    std::string_view as_input;
};

/**
 * The functions of a platform's board, in the order in which a user looks for them. Slots are those of the
 * board; with one or two modules the last ones are in use.
 */
std::span<const LineFunction> line_functions(const BoardWiring& wiring);

} // namespace sim_board

#endif
