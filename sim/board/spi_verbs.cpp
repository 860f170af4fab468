#include "board/board_verbs.h"

namespace sim_board {
namespace {

std::string set_nodes(Board& board, Words words)
{
    const std::string_view state = words.front();
    if (state != "absent" && state != "ok") {
        return verb_error("'absent' or 'ok' expected, not '" + std::string(state) + "'");
    }
    for (const std::string_view node : board.wiring().spi_nodes) {
        board.spi().set_node_present(std::string(node), state == "ok");
    }
    return verb_done();
}

constexpr BoardVerb kSpi[] = {
    {"spi", "absent|ok", "makes the SPI ports fail to open, or work again", 1, 1, nullptr, set_nodes},
};

} // namespace

constinit const std::span<const BoardVerb> kSpiVerbs = kSpi;

} // namespace sim_board
