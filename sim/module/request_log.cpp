#include "request_log.h"

namespace sim_module {

std::string escape_bytes(std::string_view bytes)
{
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(bytes.size() + 8);
    for (const char c : bytes) {
        const auto code = static_cast<unsigned char>(c);
        if (c == '\r') {
            text += "\\r";
        } else if (c == '\n') {
            text += "\\n";
        } else if (c == '\t') {
            text += "\\t";
        } else if (c == '\\') {
            text += "\\\\";
        } else if (code >= 0x20 && code < 0x7F) {
            text += c;
        } else {
            text += "\\x";
            text += kHex[code >> 4];
            text += kHex[code & 0xF];
        }
    }
    return text;
}

void RequestLog::add(std::string_view request)
{
    ++m_count;
    if (m_entries.size() == kCapacity) {
        m_entries.pop_front();
    }
    m_entries.push_back({std::string(request.substr(0, kBytesKept)), request.size()});
}

void RequestLog::clear()
{
    m_entries.clear();
    m_count = 0;
}

std::string RequestLog::line(size_t index) const
{
    const Entry& entry = m_entries.at(index);
    std::string text = escape_bytes(entry.head);
    if (entry.size > entry.head.size()) {
        text += "...(+" + std::to_string(entry.size - entry.head.size()) + " bytes)";
    }
    return text;
}

} // namespace sim_module
