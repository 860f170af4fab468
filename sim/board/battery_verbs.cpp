#include "board/board_verbs.h"

namespace sim_board {
namespace {

using Flow = SmartBattery::Flow;

bool has_battery(Board& board)
{
    return board.battery() != nullptr;
}

// The flow first, so that the old flow does not change the new charge.
std::string set_battery(Board& board, Words words)
{
    const auto percent = verb_number(words[0], 100);
    if (!percent) {
        return verb_error("a charge from 0 to 100 percent expected, not '" + std::string(words[0]) + "'");
    }
    const std::string_view state = words.size() > 1 ? words[1] : "";
    if (state == "charging" || state == "discharging") {
        board.battery()->set_flow(state == "charging" ? Flow::kFill : Flow::kDrain);
    } else if (!state.empty() && state != "absent") {
        return verb_error("'charging', 'discharging' or 'absent' expected, not '" + std::string(state) + "'");
    }
    board.battery()->set_fitted(state != "absent");
    board.battery()->set_charge(*percent);
    return verb_done();
}

std::string set_charger(Board& board, Words words)
{
    if (words[0] != "on" && words[0] != "off") {
        return verb_error("'on' or 'off' expected, not '" + std::string(words[0]) + "'");
    }
    board.battery()->set_flow(words[0] == "on" ? Flow::kFill : Flow::kDrain);
    return verb_done();
}

constexpr BoardVerb kBattery[] = {
    {"battery", "PERCENT [charging|discharging|absent]", "inserts a battery with that charge, or removes it",
     1, 2, has_battery, set_battery},
    {"charger", "on|off", "plugs the charger in or out: the battery charges or discharges", 1, 1, has_battery,
     set_charger},
};

} // namespace

constinit const std::span<const BoardVerb> kBatteryVerbs = kBattery;

} // namespace sim_board
