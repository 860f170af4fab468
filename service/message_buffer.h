#ifndef ORVAN_SERVICE_MESSAGE_BUFFER_H
#define ORVAN_SERVICE_MESSAGE_BUFFER_H

#include "large_buffer_pool.h"

#include "scpi/extensions.h"

#include <array>
#include <cstddef>
#include <span>

namespace orvan_service {

/**
 * Receive buffer of one client; cuts its stream into program messages (IEEE 488.2 7.5).
 *
 * Small messages live in a buffer of the object's own. One that outgrows it moves to a buffer of the
 * pool, which goes back when the message is done. Each byte is looked at once, and moved at most once
 * in either buffer. Used by one thread.
 *
 *     recv into space(), received(n), then next() until it gives kNeedMore.
 */
class MessageBuffer {
public:
    static constexpr size_t kSmallSize = 16 * 1024;

    enum class Event {
        kNeedMore, /**< no whole message is left; receive more */
        kMessage,  /**< `message` is a whole one, its LF included; valid until the next call of space() */
        kOverrun   /**< the message at work is longer than the limit; comes once, the message is dropped */
    };
    struct Cut {
        Event event;
        std::span<char> message;
    };

    /** The largest message, LF included, is `pool.size()` bytes, which is more than kSmallSize. */
    explicit MessageBuffer(LargeBufferPool& pool) : m_pool(pool) { SCPI_FramerReset(&m_framer); }

    /** Where to receive; never empty. Drops the messages that next() gave. */
    std::span<char> space();

    /** Tells that `len` bytes of space() have been filled. */
    void received(size_t len) { m_end += len; }

    Cut next();

    /** Bytes of a block at work that are still to come: a receive may wait for that many. */
    size_t expected() const { return m_dropping ? 0 : static_cast<size_t>(m_framer.block_left); }

    /** Bytes of the longest message, LF included. */
    size_t limit() const { return m_pool.size(); }

private:
    char* data() { return m_large ? m_large.data() : m_small.data(); }
    size_t capacity() const { return m_large ? m_pool.size() : kSmallSize; }
    void compact();
    bool grow();
    Cut drop();

    LargeBufferPool& m_pool;
    std::array<char, kSmallSize> m_small;
    LargeBuffer m_large;
    scpi_framer_t m_framer;
    size_t m_begin = 0;   // of the message at work
    size_t m_scanned = 0; // the framer has seen the bytes below
    size_t m_end = 0;     // of the bytes received
    bool m_dropping = false;
};

} // namespace orvan_service

#endif
