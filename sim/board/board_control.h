#ifndef ORVAN_SIM_BOARD_BOARD_CONTROL_H
#define ORVAN_SIM_BOARD_BOARD_CONTROL_H

#include <memory>
#include <string>
#include <thread>

#include "control/control_server.h"
#include "control/event_loop.h"

namespace sim_board {

/**
 * The control socket of a process's board: one verb per line (board_verbs.h), executed on the current board
 * by a separate thread.
 */
class BoardControl {
public:
    /** Throws std::system_error when the path can't be listened on. */
    explicit BoardControl(const std::string& path);
    /** Ends the thread and removes the path. */
    ~BoardControl();
    BoardControl(const BoardControl&) = delete;
    BoardControl& operator=(const BoardControl&) = delete;

private:
    sim_control::EventLoop m_loop;
    sim_control::ControlServer m_server;
    std::thread m_thread;
};

/**
 * The control socket at the path set in the environment. Null when none is set, or, with a message on
 * standard error, when the path can't be used.
 */
std::unique_ptr<BoardControl> board_control_of_environment();

} // namespace sim_board

#endif
