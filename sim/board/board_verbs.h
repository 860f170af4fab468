#ifndef ORVAN_SIM_BOARD_BOARD_VERBS_H
#define ORVAN_SIM_BOARD_BOARD_VERBS_H

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "board/board.h"

namespace sim_board {

/** The words after a verb. */
using Words = std::span<const std::string_view>;

/**
 * A query or an action on a board from outside. The reply is lines, each ending in LF: "ok" and possibly more
 * lines after it, or a single "error <text>".
 */
struct BoardVerb {
    std::string_view name;
    std::string_view arguments; // "ADDRESS absent|nack|ok"
    std::string_view help;
    size_t least_words;
    size_t most_words;
    /** Whether the board has what the verb needs; null where every board has. */
    bool (*fits)(Board& board);
    std::string (*run)(Board& board, Words words);
};

/**
 * @name The verbs of a part of the board
 * Each table is next to its functions; all_verbs lists the tables.
 * @{
 */
extern const std::span<const BoardVerb> kStateVerbs;
extern const std::span<const BoardVerb> kI2cVerbs;
extern const std::span<const BoardVerb> kSpiVerbs;
extern const std::span<const BoardVerb> kPowerVerbs;
extern const std::span<const BoardVerb> kBatteryVerbs;
extern const std::span<const BoardVerb> kKeypadVerbs;
/** @} */

std::span<const std::span<const BoardVerb>> all_verbs();

/** Executes one line, without its line end, on the board. "help" lists the board's verbs. */
std::string execute_on_board(Board& board, std::string_view line);

/** A word as a decimal number from 0 to `most`; empty when it is not one. */
std::optional<int> verb_number(std::string_view word, int most);

/** What verbs reply. */
std::string verb_done(std::string_view lines = {});
std::string verb_error(std::string_view text);

} // namespace sim_board

#endif
