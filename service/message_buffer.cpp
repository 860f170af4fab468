#include "message_buffer.h"

#include <cstring>

namespace orvan_service {

std::span<char> MessageBuffer::space()
{
    compact();
    return {data() + m_end, capacity() - m_end};
}

MessageBuffer::Cut MessageBuffer::next()
{
    const size_t length =
        m_scanned < m_end ? SCPI_FramerScan(&m_framer, data() + m_scanned, m_end - m_scanned) : 0;
    if (length > 0) {
        const size_t begin = m_begin;
        m_begin = m_scanned = m_scanned + length;
        if (m_dropping) {
            m_dropping = false;
            return next();
        }
        return {Event::kMessage, {data() + begin, m_begin - begin}};
    }
    m_scanned = m_end;
    if (m_dropping) {
        m_begin = m_end;
        return {Event::kNeedMore, {}};
    }
    // The LF comes on top of what a block announces; a block that cannot fit need not be waited for.
    const size_t held = m_end - m_begin;
    if (m_framer.block_left >= m_pool.size() - held) {
        return drop();
    }
    const bool outgrown = held == kSmallSize || m_framer.block_left > kSmallSize - held;
    if (!m_large && outgrown && !grow()) {
        return drop();
    }
    return {Event::kNeedMore, {}};
}

MessageBuffer::Cut MessageBuffer::drop()
{
    m_dropping = true;
    m_begin = m_end;
    return {Event::kOverrun, {}};
}

// What is left behind the last whole message came with the receive that completed it, so moving it to
// the front moves no byte twice.
void MessageBuffer::compact()
{
    if (m_begin == 0) {
        return;
    }
    const size_t left = m_end - m_begin;
    const bool fits_small = left < kSmallSize;
    if (left > 0) {
        std::memmove(fits_small ? m_small.data() : data(), data() + m_begin, left);
    }
    if (fits_small) {
        m_large = LargeBuffer();
    }
    m_begin = 0;
    m_scanned = m_end = left;
}

bool MessageBuffer::grow()
{
    m_large = m_pool.borrow();
    if (!m_large) {
        return false;
    }
    std::memcpy(m_large.data(), m_small.data() + m_begin, m_end - m_begin);
    m_end -= m_begin;
    m_scanned = m_end;
    m_begin = 0;
    return true;
}

} // namespace orvan_service
