#ifndef ORVAN_SIM_BOARD_BOARD_VERBS_H
#define ORVAN_SIM_BOARD_BOARD_VERBS_H

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "board/board.h"

namespace sim_board {

/** The words behind a verb. */
using Words = std::span<const std::string_view>;

/**
 * Something that can be asked of a board or done to it from outside. The reply is of lines, each with its
 * LF: "ok" and, where there is something to tell, lines behind it, or one "error <text>".
 */
struct BoardVerb {
    std::string_view name;
    std::string_view arguments; // "ADDRESS absent|nack|ok"
    std::string_view help;
    size_t least_words;
    size_t most_words;
    /** Whether the board has what the verb is about; null where every board has. */
    bool (*fits)(Board& board);
    std::string (*run)(Board& board, Words words);
};

/**
 * @name The verbs of a part of the board
 * Each table stands beside its functions; all_verbs lists the tables.
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

/** Executes one line on the board, given without its line end. "help" lists the verbs that the board has. */
std::string execute_on_board(Board& board, std::string_view line);

/** A word as a decimal number from 0 to `most`; empty when it is none. */
std::optional<int> verb_number(std::string_view word, int most);

/** What verbs reply. */
std::string verb_done(std::string_view lines = {});
std::string verb_error(std::string_view text);

} // namespace sim_board

#endif
