#include "message_assembly.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <utility>

namespace orvan_service {
namespace {

constexpr size_t kSmall = 4096; // kept between messages

// Has room for any message and a LF. One is kept when it is not in use: its pages would otherwise be made
// anew for each message, which takes as long as receiving it.
constexpr size_t kLarge = MessageAssembly::kLongest + 2;
constexpr size_t kLargeFrom = 64 * 1024;
std::mutex large_mutex;
std::unique_ptr<char[]> spare_large; // guarded by large_mutex

std::unique_ptr<char[]> take_large()
{
    {
        const std::lock_guard lock(large_mutex);
        if (spare_large) {
            return std::move(spare_large);
        }
    }
    return std::make_unique_for_overwrite<char[]>(kLarge);
}

void give_back(std::unique_ptr<char[]> bytes, size_t capacity)
{
    if (capacity == kLarge) {
        const std::lock_guard lock(large_mutex);
        spare_large.swap(bytes);
    }
}

} // namespace

MessageAssembly::~MessageAssembly()
{
    give_back(std::move(m_bytes), m_capacity);
}

MessageAssembly::MessageAssembly(MessageAssembly&& other) noexcept
{
    *this = std::move(other);
}

MessageAssembly& MessageAssembly::operator=(MessageAssembly&& other) noexcept
{
    std::swap(m_bytes, other.m_bytes);
    std::swap(m_capacity, other.m_capacity);
    std::swap(m_end, other.m_end);
    std::swap(m_scanned, other.m_scanned);
    std::swap(m_found, other.m_found);
    std::swap(m_dropping, other.m_dropping);
    std::swap(m_framer, other.m_framer);
    return *this;
}

std::span<char> MessageAssembly::space(size_t most)
{
    drop_found();
    most = std::min(most, kLongest + 1 - m_end); // one more than the longest message, for its LF
    if (m_end + most >= m_capacity) {            // a byte remains for the LF that end() adds
        const bool small = m_end + most < kLargeFrom;
        const size_t capacity = small ? std::max({kSmall, m_end + most + 1, 2 * m_capacity}) : kLarge;
        resize(capacity, small ? std::make_unique_for_overwrite<char[]>(capacity) : take_large());
    }
    return {m_bytes.get() + m_end, most};
}

/** Moves what has been received into another buffer. */
void MessageAssembly::resize(size_t capacity, std::unique_ptr<char[]> bytes)
{
    std::copy_n(m_bytes.get(), m_end, bytes.get());
    m_bytes.swap(bytes);
    give_back(std::move(bytes), std::exchange(m_capacity, capacity));
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
    std::memmove(m_bytes.get(), m_bytes.get() + m_found, m_end);
    if (m_capacity > kSmall && m_end < kSmall) {
        resize(kSmall, std::make_unique_for_overwrite<char[]>(kSmall));
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
