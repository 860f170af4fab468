#include "request_framer.h"

namespace sim_module {

void RequestFramer::add(std::string_view bytes)
{
    m_bytes.erase(0, m_taken);
    m_scanned -= m_taken;
    m_taken = 0;
    m_bytes.append(bytes);
}

RequestFramer::Result RequestFramer::next(std::string_view& request)
{
    const size_t length = SCPI_FramerScan(&m_framer, m_bytes.data() + m_scanned, m_bytes.size() - m_scanned);
    if (length == 0) {
        if (m_bytes.size() - m_taken > kMaxRequest) {
            m_too_long = true;
            m_bytes.resize(m_taken + kMaxRequest);
        }
        m_scanned = m_bytes.size();
        return Result::kNone;
    }

    m_scanned += length;
    request = std::string_view(m_bytes).substr(m_taken, m_scanned - m_taken);
    m_taken = m_scanned;
    const bool too_long = m_too_long || request.size() > kMaxRequest;
    m_too_long = false;
    if (too_long) {
        request = request.substr(0, kMaxRequest);
        return Result::kTooLong;
    }
    return Result::kRequest;
}

} // namespace sim_module
