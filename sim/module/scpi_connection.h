/** One client of the SCPI port. Its requests are served one after the other, each reply before the next. */
#ifndef ORVAN_SIM_MODULE_SCPI_CONNECTION_H
#define ORVAN_SIM_MODULE_SCPI_CONNECTION_H

#include <cstddef>
#include <vector>

#include "control/event_loop.h"
#include "faults.h"
#include "request_framer.h"
#include "unique_fd.h"

namespace sim_module {

class ScpiServer;

class ScpiConnection : private sim_control::EventSink {
public:
    ScpiConnection(ScpiServer& server, orvan_common::UniqueFd socket);
    ~ScpiConnection() override;

    ScpiConnection(const ScpiConnection&) = delete;
    ScpiConnection& operator=(const ScpiConnection&) = delete;

    /** Serves what has already arrived. The connection may be gone when this returns. */
    void start();

private:
    enum class State { kOpen, kGone };

    void on_ready(short revents) override;
    void settle(State state);
    State receive();
    State serve_requests();
    State send_pieces();
    State resume();
    bool replying() const { return m_piece < m_pieces.size(); }

    ScpiServer& m_server;
    orvan_common::UniqueFd m_socket;
    RequestFramer m_framer;
    std::vector<ReplyPiece> m_pieces;            // of the current reply
    size_t m_piece = 0;                          // the first one not completely sent
    sim_control::EventLoop::TimerId m_timer = 0; // not 0 while that piece is delayed
    short m_events;                              // watched by the loop
    bool m_peer_ended = false;
};

} // namespace sim_module

#endif
