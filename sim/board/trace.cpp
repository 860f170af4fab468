#include "board/trace.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace sim_board {

void Trace::add(const char* format, ...)
{
    char line[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);

    std::lock_guard lock(m_mutex);
    m_lines.emplace_back(line);
    if (m_lines.size() > m_limit) {
        m_lines.pop_front();
        ++m_dropped;
    }
}

std::vector<std::string> Trace::lines() const
{
    std::lock_guard lock(m_mutex);
    return {m_lines.begin(), m_lines.end()};
}

std::vector<std::string> Trace::lines_with(std::initializer_list<std::string_view> prefixes) const
{
    std::vector<std::string> found;
    std::lock_guard lock(m_mutex);
    std::copy_if(m_lines.begin(), m_lines.end(), std::back_inserter(found), [&](const std::string& line) {
        return std::any_of(prefixes.begin(), prefixes.end(),
                           [&](std::string_view prefix) { return line.starts_with(prefix); });
    });
    return found;
}

std::vector<std::string> Trace::take()
{
    std::lock_guard lock(m_mutex);
    std::vector<std::string> taken(m_lines.begin(), m_lines.end());
    m_lines.clear();
    m_dropped = 0;
    return taken;
}

void Trace::clear()
{
    std::lock_guard lock(m_mutex);
    m_lines.clear();
    m_dropped = 0;
}

std::size_t Trace::dropped() const
{
    std::lock_guard lock(m_mutex);
    return m_dropped;
}

std::string hex_bytes(const unsigned char* bytes, std::size_t count)
{
    constexpr std::size_t kShown = 16;
    std::string text;
    for (std::size_t i = 0; i < std::min(count, kShown); ++i) {
        char digits[4];
        std::snprintf(digits, sizeof digits, i == 0 ? "%02x" : " %02x", bytes[i]);
        text += digits;
    }
    if (count > kShown)
        text += " ... " + std::to_string(count) + " bytes";
    return text;
}

} // namespace sim_board
