#include "event_loop.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <system_error>

#include <sys/eventfd.h>
#include <unistd.h>

namespace sim_control {

EventLoop::EventLoop() : m_stop(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!m_stop) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    m_polls.push_back({m_stop.get(), POLLIN, 0});
    m_sinks.push_back(nullptr);
}

void EventLoop::watch(int fd, short events, EventSink& sink)
{
    m_polls.push_back({fd, events, 0});
    m_sinks.push_back(&sink);
}

void EventLoop::change(int fd, short events)
{
    const auto entry =
        std::find_if(m_polls.begin(), m_polls.end(), [fd](const pollfd& p) { return p.fd == fd; });
    if (entry != m_polls.end()) {
        entry->events = events;
        // What poll() reported for the old events does not apply to the new ones.
        entry->revents = 0;
    }
}

void EventLoop::unwatch(int fd)
{
    const auto entry =
        std::find_if(m_polls.begin(), m_polls.end(), [fd](const pollfd& p) { return p.fd == fd; });
    if (entry != m_polls.end()) {
        entry->fd = -1;
    }
}

EventLoop::TimerId EventLoop::after(std::chrono::milliseconds delay, std::function<void()> action)
{
    const TimerId id = ++m_last_timer;
    m_timers.emplace(std::pair{Clock::now() + delay, id}, std::move(action));
    return id;
}

void EventLoop::cancel(TimerId id)
{
    std::erase_if(m_timers, [id](const auto& timer) { return timer.first.second == id; });
}

int EventLoop::wait_time() const
{
    if (m_timers.empty()) {
        return -1;
    }
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(m_timers.begin()->first.first - Clock::now());
    return static_cast<int>(std::clamp<std::chrono::milliseconds::rep>(left.count(), 0, 60'000));
}

void EventLoop::fire_timers()
{
    while (!m_timers.empty() && m_timers.begin()->first.first <= Clock::now()) {
        const auto timer = m_timers.extract(m_timers.begin());
        timer.mapped()();
    }
}

void EventLoop::dispatch()
{
    if (m_polls.front().revents != 0) {
        m_stopped = true;
        return;
    }
    // Sinks append entries while this runs; those have not been polled yet.
    const size_t polled = m_polls.size();
    for (size_t i = 1; i < polled; ++i) {
        const short revents = m_polls[i].revents;
        if (m_polls[i].fd >= 0 && revents != 0) {
            m_sinks[i]->on_ready(revents);
        }
    }
    size_t kept = 1;
    for (size_t i = 1; i < m_polls.size(); ++i) {
        if (m_polls[i].fd >= 0) {
            m_polls[kept] = m_polls[i];
            m_sinks[kept] = m_sinks[i];
            ++kept;
        }
    }
    m_polls.resize(kept);
    m_sinks.resize(kept);
}

void EventLoop::run()
{
    while (!m_stopped) {
        const int ready = ::poll(m_polls.data(), m_polls.size(), wait_time());
        if (ready < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
        if (ready > 0) {
            dispatch();
        }
        if (!m_timers.empty()) {
            fire_timers();
        }
    }
}

void EventLoop::stop() noexcept
{
    const int saved = errno;
    const uint64_t one = 1;
    // The counter can only be full when a stop is already pending.
    [[maybe_unused]] const ssize_t written = ::write(m_stop.get(), &one, sizeof one);
    errno = saved;
}

} // namespace sim_control
