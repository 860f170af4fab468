#include "board/trace.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <utility>

namespace sim_board {

namespace {

thread_local uint64_t t_added = 0;

std::string vformatted(const char* format, va_list arguments)
{
    char text[256];
    std::vsnprintf(text, sizeof text, format, arguments);
    return text;
}

} // namespace

std::string formatted(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::string text = vformatted(format, arguments);
    va_end(arguments);
    return text;
}

uint64_t Trace::added_by_this_thread()
{
    return t_added;
}

void Trace::add(Line line)
{
    ++t_added;
    std::lock_guard lock(m_mutex);
    m_lines.push_back(std::move(line));
    if (m_lines.size() > m_limit) {
        m_lines.pop_front();
        ++m_dropped;
    }
}

void Trace::add(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::string text = vformatted(format, arguments);
    va_end(arguments);
    add([text = std::move(text)] { return text; });
}

std::vector<std::string> Trace::lines() const
{
    return lines_with({""});
}

std::vector<std::string> Trace::lines_with(std::initializer_list<std::string_view> prefixes) const
{
    std::vector<std::string> found;
    std::lock_guard lock(m_mutex);
    for (const Line& line : m_lines) {
        std::string text = line();
        if (std::any_of(prefixes.begin(), prefixes.end(),
                        [&](std::string_view prefix) { return text.starts_with(prefix); })) {
            found.push_back(std::move(text));
        }
    }
    return found;
}

std::vector<std::string> Trace::take()
{
    std::deque<Line> taken;
    {
        std::lock_guard lock(m_mutex);
        taken.swap(m_lines);
        m_dropped = 0;
    }
    std::vector<std::string> texts;
    texts.reserve(taken.size());
    for (const Line& line : taken) {
        texts.push_back(line());
    }
    return texts;
}

void Trace::clear()
{
    std::lock_guard lock(m_mutex);
    m_lines.clear();
    m_dropped = 0;
}

size_t Trace::dropped() const
{
    std::lock_guard lock(m_mutex);
    return m_dropped;
}

std::string hex_bytes(const unsigned char* bytes, size_t count)
{
    std::string text;
    for (size_t i = 0; i < std::min(count, kShownBytes); ++i) {
        text += formatted(i == 0 ? "%02x" : " %02x", bytes[i]);
    }
    if (count > kShownBytes) {
        text += " ... " + std::to_string(count) + " bytes";
    }
    return text;
}

} // namespace sim_board
