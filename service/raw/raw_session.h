#ifndef ORVAN_SERVICE_RAW_SESSION_H
#define ORVAN_SERVICE_RAW_SESSION_H

#include <span>

#include "http_request_line.h"
#include "message_buffer.h"
#include "service/counters/counters.h"
#include "service/message_sink.h"
#include "service/session.h"
#include <unique_fd.h>

namespace orvan_service {

struct RawLimits {
    /**
     * How long one write of a reply may block the executor. An unread reply can hit it twice, in its
     * body and at its end, and the next client must still be answered within a second.
     */
    std::chrono::milliseconds send_timeout{300};
    /** How long a client may leave its replies unread before it is closed. */
    ServiceTime reply_patience{5000};
    /** How long a message may take to arrive: this plus a second for each kBytesASecond of its length.
     */
    ServiceTime message_patience{60'000};
    static constexpr size_t kBytesASecond = 64 * 1024;
};

/**
 * A client of the raw socket: program messages end with LF (IEEE 488.2 7.5), and the library writes their
 * replies to the socket itself.
 *
 * A client whose first line is an HTTP request line is closed before anything is executed.
 *
 * A client that does not read its replies gets no turn until there is room for a reply again. Only a reply
 * longer than the socket's buffer can block, for at most two send timeouts, and only once, as the client is
 * then closed.
 */
class RawSession : public Session {
public:
    /** @param sink, memory, counters outlive the session */
    RawSession(orvan_common::UniqueFd socket, MessageSink& sink, MessageMemory& memory, Counters& counters,
               const RawLimits& limits);
    ~RawSession() override;

    int descriptor() const override { return m_socket.get(); }
    Wait advance(ServiceTime now, bool readable) override;
    void execute() override;
    void input_ends() override { m_orderly = true; }
    HangUp hung_up() override;
    ServiceTime deadline() const override { return m_deadline; }
    void expired() override;

    /**
     * A local connection (127.0.0.1) whose first message has not begun may be the library's own, which
     * queries a temperature and would mistake the end of the connection for an empty answer.
     */
    bool stays_open() const override;

private:
    Wait wait_for_turn(ServiceTime now);
    Wait wait_for_input(ServiceTime now);
    void start_clock(ServiceTime now);
    bool receive();
    void receive_in_bulk(bool bulk);
    void answer_error(int number);
    bool has_room_for_reply() const;

    const orvan_common::UniqueFd m_socket;
    MessageSink& m_sink;
    Counters& m_counters;
    const RawLimits m_limits;
    MessageBuffer m_buffer;
    HttpRequestLine m_first_line;
    std::span<char> m_message; // found and not yet executed
    ServiceTime m_deadline = kNever;
    ServiceTime m_begun = kNever; // the unfinished message
    unsigned m_unchecked_replies = 0;
    bool m_had_turn = false;
    bool m_bulk = false;
    bool m_input_ended = false;
    bool m_orderly = false; // the peer ended its input before anything else
    bool m_broken = false;
};

} // namespace orvan_service

#endif
