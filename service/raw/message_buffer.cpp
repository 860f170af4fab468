#include "message_buffer.h"

#include <algorithm>
#include <cstring>

namespace orvan_service {

std::span<char> MessageBuffer::space()
{
    if (!m_piece) {
        m_piece = m_memory.borrow();
    }
    compact();
    return {m_piece.data() + m_end, m_piece.size() - m_end};
}

MessageBuffer::Cut MessageBuffer::next()
{
    const size_t length =
        m_scanned < m_end ? SCPI_FramerScan(&m_framer, m_piece.data() + m_scanned, m_end - m_scanned) : 0;
    if (length > 0) {
        const size_t begin = m_begin;
        m_begin = m_scanned = m_scanned + length;
        if (m_dropping) {
            m_dropping = false;
            m_dropped = 0;
            return next();
        }
        return {Event::kMessage, {m_piece.data() + begin, m_begin - begin}};
    }
    m_scanned = m_end;
    if (m_dropping) {
        m_dropped += held();
        m_begin = m_end;
    }
    if (m_begin == m_end) {
        m_begin = m_scanned = m_end = 0;
        m_piece = {};
        return {Event::kNeedMore, {}};
    }
    // The LF adds to the announced length; do not wait for a block that cannot fit.
    const auto left = static_cast<size_t>(m_framer.block_left); // of at most nine digits
    if (left >= limit() - held()) {
        return drop();
    }
    if (held() == m_piece.size() || left > m_piece.size() - held()) {
        // What follows the block is usually short; text without an announced length may be any length.
        const size_t wanted = left > 0 ? std::min(limit(), held() + left + MessageMemory::kShort) : limit();
        const bool moves = !m_piece.is_long();
        switch (m_memory.reserve(this, m_piece, wanted, m_begin, m_end)) {
        case MessageMemory::Answer::kGranted:
            if (moves) {
                m_scanned = m_end = held();
                m_begin = 0;
            }
            break;
        case MessageMemory::Answer::kWait:
            return {Event::kWait, {}};
        case MessageMemory::Answer::kNone:
            return drop();
        }
    }
    return {Event::kNeedMore, {}};
}

MessageBuffer::Cut MessageBuffer::drop()
{
    m_dropping = true;
    m_dropped = held();
    m_begin = m_end;
    return {Event::kOverrun, {}};
}

// The rest after the last complete message came with the receive that completed it, so no byte is moved to
// the front twice.
void MessageBuffer::compact()
{
    if (m_begin == 0) {
        return;
    }
    const size_t left = held();
    if (m_piece.is_long() && left < MessageMemory::kShort) {
        MessagePiece piece = m_memory.borrow();
        std::memcpy(piece.data(), m_piece.data() + m_begin, left);
        m_piece = std::move(piece);
    } else if (left > 0) {
        std::memmove(m_piece.data(), m_piece.data() + m_begin, left);
    }
    m_begin = 0;
    m_scanned = m_end = left;
}

} // namespace orvan_service
