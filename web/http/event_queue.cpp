#include "http/event_queue.h"

#include <utility>

namespace orvan_web {

std::string event_text(std::string_view event, std::string_view data)
{
    std::string text = "event: ";
    text += event;
    for (size_t begin = 0; begin <= data.size();) {
        // A line ends with CR LF, LF or CR alone.
        const size_t end = std::min(data.find_first_of("\r\n", begin), data.size());
        text += "\ndata: ";
        text += data.substr(begin, end - begin);
        begin = end + (data.substr(end, 2) == "\r\n" ? 2 : 1);
    }
    return text + "\n\n";
}

bool EventQueue::add(std::string_view bytes, Clock::time_point now)
{
    std::unique_lock lock(m_mutex);
    if (m_closed) {
        return false;
    }
    if (m_bytes.size() + bytes.size() > kMostBytes) {
        lock.unlock();
        drop();
        return false;
    }
    if (m_bytes.empty()) {
        m_progress = now;
    }
    m_bytes += bytes;
    m_last_added = now;
    const bool wake = std::exchange(m_asleep, false);
    lock.unlock();
    if (wake) {
        m_wake();
    }
    return true;
}

void EventQueue::close(bool drop)
{
    {
        const std::lock_guard lock(m_mutex);
        m_closed = true;
        if (drop) {
            m_dropped = true;
            m_bytes.clear();
        }
        m_asleep = false;
    }
    m_wake();
}

void EventQueue::end()
{
    close(false);
}

void EventQueue::drop()
{
    close(true);
}

bool EventQueue::closed() const
{
    const std::lock_guard lock(m_mutex);
    return m_closed;
}

bool EventQueue::dropped() const
{
    const std::lock_guard lock(m_mutex);
    return m_dropped;
}

std::optional<std::string> EventQueue::take(size_t size, Clock::time_point now)
{
    const std::lock_guard lock(m_mutex);
    if (m_bytes.empty() && !m_closed) {
        m_asleep = true;
        return std::nullopt;
    }
    std::string taken = m_bytes.substr(0, size);
    m_bytes.erase(0, taken.size());
    m_progress = now;
    return taken;
}

EventQueue::Clock::time_point EventQueue::last_added() const
{
    const std::lock_guard lock(m_mutex);
    return m_last_added;
}

std::optional<EventQueue::Clock::time_point> EventQueue::waiting_since() const
{
    const std::lock_guard lock(m_mutex);
    return m_bytes.empty() ? std::nullopt : std::optional(m_progress);
}

} // namespace orvan_web
