#include "message_memory.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include <sys/mman.h>

namespace orvan_service {
namespace {

// Spare short pieces kept; any more are returned to the allocator.
constexpr size_t kShortSpares = 16;

} // namespace

MessagePiece::MessagePiece(MessagePiece&& other) noexcept
    : m_memory(other.m_memory), m_data(std::exchange(other.m_data, nullptr)), m_size(other.m_size),
      m_long(other.m_long)
{
}

MessagePiece& MessagePiece::operator=(MessagePiece&& other) noexcept
{
    std::swap(m_memory, other.m_memory);
    std::swap(m_data, other.m_data);
    std::swap(m_size, other.m_size);
    std::swap(m_long, other.m_long);
    return *this;
}

MessagePiece::~MessagePiece()
{
    if (m_data != nullptr) {
        m_memory->give_back(*this);
    }
}

MessageMemory::MessageMemory(size_t longest, size_t budget) : m_longest(longest), m_budget(budget)
{
    m_short_spares.reserve(kShortSpares);
}

MessageMemory::~MessageMemory()
{
    if (m_long_spare != nullptr) {
        ::munmap(m_long_spare, m_longest);
    }
}

MessagePiece MessageMemory::borrow()
{
    if (m_short_spares.empty()) {
        return {this, new char[kShort], kShort, false};
    }
    char* const data = m_short_spares.back().release();
    m_short_spares.pop_back();
    return {this, data, kShort, false};
}

MessageMemory::Answer MessageMemory::reserve(const void* owner, MessagePiece& piece, size_t bytes,
                                             size_t first, size_t last)
{
    const size_t held = piece.is_long() ? piece.m_size : 0;
    const size_t more = bytes > held ? bytes - held : 0;
    const auto place = std::find(m_line.begin(), m_line.end(), owner);
    const bool its_turn = m_line.empty() || place == m_line.begin();
    if (!its_turn || more > m_budget - m_reserved) {
        if (place == m_line.end()) {
            m_line.push_back(owner);
        }
        return Answer::kWait;
    }
    leave_line(owner);
    if (!piece.is_long()) {
        // A piece reserves address space for the longest message; pages are allocated as they are written.
        char* const data = map();
        if (data == nullptr) {
            return Answer::kNone;
        }
        std::memcpy(data, piece.data() + first, last - first);
        piece = MessagePiece(this, data, 0, true);
    }
    piece.m_size += more;
    m_reserved += more;
    return Answer::kGranted;
}

void MessageMemory::leave_line(const void* owner)
{
    std::erase(m_line, owner);
}

// The last long piece returned is kept with its pages, as touching 3 MB of fresh pages takes a good part of
// the time needed to receive them from a socket.
char* MessageMemory::map()
{
    if (m_long_spare != nullptr) {
        return std::exchange(m_long_spare, nullptr);
    }
    void* const data = ::mmap(nullptr, m_longest, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    return data == MAP_FAILED ? nullptr : static_cast<char*>(data);
}

void MessageMemory::give_back(MessagePiece& piece)
{
    if (piece.is_long()) {
        m_reserved -= piece.m_size;
        std::swap(m_long_spare, piece.m_data);
        if (piece.m_data != nullptr) {
            ::munmap(piece.m_data, m_longest);
        }
    } else if (m_short_spares.size() < kShortSpares) {
        m_short_spares.emplace_back(piece.m_data);
    } else {
        delete[] piece.m_data;
    }
    piece.m_data = nullptr;
}

} // namespace orvan_service
