#ifndef ORVAN_SERVICE_RAW_MESSAGE_BUFFER_H
#define ORVAN_SERVICE_RAW_MESSAGE_BUFFER_H

#include <cstddef>
#include <span>

#include "scpi/extensions.h"
#include "service/message_memory.h"

namespace orvan_service {

/**
 * Receive buffer of one client; splits its stream into program messages (IEEE 488.2 7.5).
 *
 * Short messages live in a short piece of memory, a long one in a piece reserved for its length. Each byte is
 * examined once, and moved at most once in either piece. Used on the memory's thread only.
 *
 *     recv into space(), received(n), then next() until it returns kNeedMore.
 */
class MessageBuffer {
public:
    enum class Event {
        kNeedMore, /**< no complete message left; receive more */
        kMessage,  /**< `message` is complete, including its LF; valid until the next call of next() */
        kOverrun,  /**< the current message exceeds the limit; reported once, the message is dropped */
        kWait      /**< no memory for the current message yet; receive nothing, call next() again */
    };
    struct Cut {
        Event event;
        std::span<char> message;
    };

    /** The longest message, LF included, is `memory.longest()` bytes. */
    explicit MessageBuffer(MessageMemory& memory) : m_memory(memory) { SCPI_FramerReset(&m_framer); }
    ~MessageBuffer() { m_memory.leave_line(this); }
    MessageBuffer(const MessageBuffer&) = delete;
    MessageBuffer& operator=(const MessageBuffer&) = delete;

    /** Where to receive; never empty after next() returned kNeedMore. Drops the messages that next()
     * returned. */
    std::span<char> space();

    /** `len` bytes of space() have been filled. */
    void received(size_t len) { m_end += len; }

    Cut next();

    /** Bytes of the current block still to come: a receive may wait for that many. */
    size_t expected() const { return m_dropping ? 0 : static_cast<size_t>(m_framer.block_left); }

    /** A message has begun and not ended. */
    bool unfinished() const { return held() > 0 || m_dropping; }

    /** Bytes of the unfinished message received or announced so far. */
    size_t length() const { return m_dropped + held() + static_cast<size_t>(m_framer.block_left); }

    /** The current message holds some of the memory for long messages. */
    bool has_long_piece() const { return m_piece.is_long(); }

    /** Bytes of the longest message, LF included. */
    size_t limit() const { return m_memory.longest(); }

private:
    size_t held() const { return m_end - m_begin; }
    void compact();
    Cut drop();

    MessageMemory& m_memory;
    MessagePiece m_piece;
    scpi_framer_t m_framer;
    size_t m_begin = 0;   // of the current message
    size_t m_scanned = 0; // the framer has seen the bytes below
    size_t m_end = 0;     // of the bytes received
    size_t m_dropped = 0; // bytes of the current message
    bool m_dropping = false;
};

} // namespace orvan_service

#endif
