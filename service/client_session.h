#ifndef ORVAN_SERVICE_CLIENT_SESSION_H
#define ORVAN_SERVICE_CLIENT_SESSION_H

#include "http_request_line.h"
#include "message_buffer.h"
#include "message_sink.h"
#include "turn_queue.h"
#include <unique_fd.h>

#include <atomic>
#include <chrono>
#include <span>

namespace orvan_service {

struct SessionLimits {
    /**
     * How long one write of a reply may block within a turn. A reply that is not read can meet it twice,
     * in its body and at its end, and the next client is to be answered within a second all the same.
     */
    std::chrono::milliseconds send_timeout{300};
    /** How long a client may leave its replies unread, outside any turn, before it is closed. */
    std::chrono::milliseconds reply_patience{5000};
};

/**
 * One client: receives, and has its messages executed one by one, each in a turn of its own.
 *
 * One whose first line is an HTTP request line is closed before anything of it is executed.
 *
 * A client that does not read its replies is not given a turn until there is room for a reply again, so
 * it keeps nobody waiting. Only a reply longer than the socket's buffer can block in a turn; that costs
 * at most two send time-outs, once, since the client is closed then.
 */
class ClientSession {
public:
    ClientSession(UniqueFd socket, MessageSink& sink, TurnQueue& turns, LargeBufferPool& pool,
                  const SessionLimits& limits);

    /** Serves the client until it leaves or end() is called; on the client's own thread. */
    void run();

    /** Lets run() return when the message at work is done and its reply sent. Any thread. */
    void end();

    /**
     * After run(): whether the connection is to stay open until the process leaves, unlike any other. It is
     * of this machine (127.0.0.1), end() came before its first message was begun, and so it may be the
     * library's own, which asks for a temperature and would take the end of the connection for an empty
     * answer.
     */
    bool stays_open() const { return m_stays_open; }

private:
    bool receive();
    void receive_in_bulk(bool bulk);
    bool execute(std::span<char> message);
    void refuse_overrun();
    bool has_room_for_reply(std::chrono::milliseconds patience) const;

    const UniqueFd m_socket;
    MessageSink& m_sink;
    TurnQueue& m_turns;
    const SessionLimits m_limits;
    MessageBuffer m_buffer;
    HttpRequestLine m_first_line;
    std::atomic<bool> m_ending = false;
    unsigned m_unchecked_replies = 0;
    bool m_had_turn = false;
    bool m_stays_open = false;
    bool m_bulk = false;
};

} // namespace orvan_service

#endif
