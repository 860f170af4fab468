#include "message_assembly.h"

#include <algorithm>
#include <cstring>

namespace orvan_service {
namespace {

constexpr size_t kSmall = 4096; // kept between messages

} // namespace

std::span<char> MessageAssembly::space(size_t most)
{
    drop_found();
    most = std::min(most, kLongest + 1 - m_end); // one more than the longest message, for its LF
    if (m_end + most >= m_capacity) {            // a byte remains for the LF that end() adds
        const size_t capacity = std::max({kSmall, m_end + most + 1, std::min(2 * m_capacity, kLongest + 2)});
        auto larger = std::make_unique_for_overwrite<char[]>(capacity);
        std::copy_n(m_bytes.get(), m_end, larger.get());
        m_bytes = std::move(larger);
        m_capacity = capacity;
    }
    return {m_bytes.get() + m_end, most};
}

MessageAssembly::Found MessageAssembly::next()
{
    drop_found();
    const size_t length = SCPI_FramerScan(&m_framer, m_bytes.get() + m_scanned, m_end - m_scanned);
    if (length != 0) {
        return found(m_scanned + length);
    }
    m_scanned = m_end;
    if (m_dropping || m_end > kLongest) {
        m_dropping = true;
        m_end = m_scanned = 0;
    }
    return Found::kNothing;
}

MessageAssembly::Found MessageAssembly::end()
{
    drop_found();
    SCPI_FramerReset(&m_framer);
    if (m_end == 0 && !m_dropping) {
        return Found::kNothing;
    }
    if (m_end != 0) {
        m_bytes[m_end++] = '\n';
    }
    return found(m_end);
}

MessageAssembly::Found MessageAssembly::found(size_t length)
{
    m_found = m_scanned = length;
    if (m_dropping || length > kLongest + 1) {
        m_dropping = false;
        drop_found();
        return Found::kTooLong;
    }
    return Found::kMessage;
}

bool MessageAssembly::has_more() const
{
    return m_dropping || std::any_of(m_bytes.get() + m_found, m_bytes.get() + m_end,
                                     [](char c) { return static_cast<unsigned char>(c) > ' '; });
}

void MessageAssembly::drop_found()
{
    if (m_found == 0) {
        return;
    }
    m_end -= m_found;
    m_scanned -= m_found;
    if (m_capacity > kSmall && m_end <= kSmall) {
        auto smaller = std::make_unique_for_overwrite<char[]>(kSmall);
        std::copy_n(m_bytes.get() + m_found, m_end, smaller.get());
        m_bytes = std::move(smaller);
        m_capacity = kSmall;
    } else {
        std::memmove(m_bytes.get(), m_bytes.get() + m_found, m_end);
    }
    m_found = 0;
}

void MessageAssembly::clear()
{
    m_end = m_scanned = m_found = 0;
    m_dropping = false;
    SCPI_FramerReset(&m_framer);
}

} // namespace orvan_service
