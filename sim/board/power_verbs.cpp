#include "board/board_verbs.h"

namespace sim_board {
namespace {

std::string push_button(Board& board, Words words)
{
    const std::string_view what = words.empty() ? "" : words[0];
    if (!what.empty() && what != "press" && what != "release") {
        return verb_error("'press' or 'release' expected, not '" + std::string(what) + "'");
    }
    if (what != "release") {
        board.power_button(true);
    }
    if (what != "press") {
        board.power_button(false);
    }
    return verb_done();
}

constexpr BoardVerb kPower[] = {
    {"power-button", "[press|release]", "presses the power button, or holds it down or releases it", 0, 1,
     nullptr, push_button},
};

} // namespace

constinit const std::span<const BoardVerb> kPowerVerbs = kPower;

} // namespace sim_board
