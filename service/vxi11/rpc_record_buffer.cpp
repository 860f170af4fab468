#include "rpc_record_buffer.h"

#include <algorithm>

namespace orvan_service {
namespace {

constexpr uint32_t kLastFragment = 0x80000000;

// A buffer that once grew beyond this is not kept.
constexpr size_t kKept = 16 * 1024;

} // namespace

RpcRecordBuffer::State RpcRecordBuffer::take(std::string_view& bytes)
{
    if (m_complete) {
        m_complete = false;
        if (m_record.capacity() > kKept) {
            m_record = {};
        }
        m_record.clear();
    }
    while (true) {
        for (; m_mark_bytes < sizeof m_mark; ++m_mark_bytes, bytes.remove_prefix(1)) {
            if (bytes.empty()) {
                return State::kUnfinished;
            }
            m_mark = m_mark << 8 | static_cast<uint8_t>(bytes.front());
            m_left = m_mark & ~kLastFragment; // complete with the last byte
        }
        if (m_left > m_longest - m_record.size()) {
            return State::kTooLong;
        }
        const size_t taken = std::min(m_left, bytes.size());
        m_record.append(bytes.substr(0, taken));
        bytes.remove_prefix(taken);
        m_left -= taken;
        if (m_left > 0) {
            return State::kUnfinished;
        }
        m_mark_bytes = 0;
        if ((m_mark & kLastFragment) != 0) {
            m_complete = true;
            return State::kComplete;
        }
    }
}

} // namespace orvan_service
