#include "power_on_verbs.h"

#include "board/board_verbs.h"

namespace orvan_launcher {

using orvan_sandbox::Error;
using orvan_sandbox::Result;

Result<bool> check_power_on_verbs(std::string_view platform, const std::vector<std::string>& verbs)
{
    const sim_board::BoardWiring* const wiring = sim_board::find_wiring(platform);
    if (wiring == nullptr) {
        return Error{"looking for the board of " + std::string(platform), 0, "there is none", "", false};
    }
    sim_board::Board board(*wiring, sim_board::Clock::Mode::kManual);
    for (const std::string& verb : verbs) {
        constexpr std::string_view kRefused = "error ";
        std::string reply = sim_board::execute_on_board(board, verb);
        if (reply.starts_with(kRefused)) {
            reply.pop_back();
            return Error{"--board \"" + verb + "\"", 0, reply.substr(kRefused.size()), "", false};
        }
    }
    return true;
}

} // namespace orvan_launcher
