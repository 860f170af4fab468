#include "board/board_control.h"

#include <cstdio>
#include <system_error>

#include "board/board_verbs.h"
#include "board/current_board.h"
#include "board/environment.h"

namespace sim_board {

BoardControl::BoardControl(const std::string& path)
    : m_server(m_loop, path, [](std::string_view line) { return execute_on_board(*current_board(), line); }),
      m_thread([this] { m_loop.run(); })
{
}

BoardControl::~BoardControl()
{
    m_loop.stop();
    m_thread.join();
}

std::unique_ptr<BoardControl> board_control_of_environment()
{
    const std::string path = board_environment().control_path;
    if (path.empty()) {
        return nullptr;
    }
    try {
        return std::make_unique<BoardControl>(path);
    } catch (const std::system_error& error) {
        std::fprintf(stderr, "sim_board: no control socket: %s\n", error.what());
        return nullptr;
    }
}

} // namespace sim_board
