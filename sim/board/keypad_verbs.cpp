#include "board/board_verbs.h"
#include "board/front_panel_keys.h"

namespace sim_board {
namespace {

bool has_keypad(Board& board)
{
    return board.keypad() != nullptr;
}

// A line of the matrix; sets `complaint` if it is invalid.
std::optional<int> line_of(std::string_view word, int lines, const char* what, std::string& complaint)
{
    const auto line = verb_number(word, lines - 1);
    if (!line && complaint.empty()) {
        complaint = std::string("a ") + what + " from 0 to " + std::to_string(lines - 1) +
                    " expected, not '" + std::string(word) + "'";
    }
    return line;
}

// No change if the key is already in that state.
std::string push_key(Board& board, Words words)
{
    std::string complaint;
    const auto row = line_of(words[0], kKeyRows, "row", complaint);
    const auto column = line_of(words[1], kKeyColumns, "column", complaint);
    if (!complaint.empty()) {
        return verb_error(complaint);
    }
    const std::string_view what = words.size() > 2 ? words[2] : "";
    if (!what.empty() && what != "press" && what != "release") {
        return verb_error("'press' or 'release' expected, not '" + std::string(what) + "'");
    }
    if (what != "release") {
        board.keypad()->press(*row, *column);
    }
    if (what != "press") {
        board.keypad()->release(*row, *column);
    }
    return verb_done();
}

constexpr BoardVerb kKeypad[] = {
    {"key", "ROW COLUMN [press|release]", "presses a key of the front panel, or holds it down or releases it",
     2, 3, has_keypad, push_key},
};

} // namespace

constinit const std::span<const BoardVerb> kKeypadVerbs = kKeypad;

} // namespace sim_board
