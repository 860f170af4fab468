#include "loop.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <system_error>

#include <poll.h>
#include <sys/eventfd.h>

namespace orvan_web {

InstrumentLoop::InstrumentLoop() : m_wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!m_wake) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

InstrumentLoop::~InstrumentLoop()
{
    std::vector<std::function<void()>> posted;
    {
        const std::lock_guard lock(m_mutex);
        m_closed = true;
        posted.swap(m_posted);
    }
    // What they own may cancel and post.
    const auto watches = std::exchange(m_watches, {});
    const auto timers = std::exchange(m_timers, {});
}

void InstrumentLoop::watch(int fd, short events, std::function<void(short)> ready)
{
    m_watches[fd] = {events, ++m_last_number, std::move(ready)};
}

void InstrumentLoop::unwatch(int fd)
{
    m_watches.erase(fd);
}

InstrumentLoop::TimerId InstrumentLoop::after(std::chrono::milliseconds delay, std::function<void()> action)
{
    const TimerId id = ++m_last_number;
    m_timers.emplace(std::pair(Clock::now() + delay, id), std::move(action));
    return id;
}

void InstrumentLoop::cancel(TimerId id)
{
    std::erase_if(m_timers, [id](const auto& timer) { return timer.first.second == id; });
}

std::shared_ptr<void> InstrumentLoop::join(std::chrono::milliseconds bound, std::function<void()> done)
{
    const auto once = std::make_shared<std::function<void()>>(std::move(done));
    const auto call = [once] {
        if (const std::function<void()> action = std::exchange(*once, nullptr)) {
            action();
        }
    };
    const TimerId timer = after(bound, call);
    return {nullptr, [this, timer, call](void*) {
                cancel(timer);
                post(call);
            }};
}

void InstrumentLoop::post(std::function<void()> action)
{
    {
        const std::lock_guard lock(m_mutex);
        if (m_closed) {
            return;
        }
        m_posted.push_back(std::move(action));
    }
    wake();
}

void InstrumentLoop::stop()
{
    {
        const std::lock_guard lock(m_mutex);
        m_stopped = true;
    }
    wake();
}

void InstrumentLoop::run()
{
    for (;;) {
        {
            const std::lock_guard lock(m_mutex);
            if (m_stopped) {
                return;
            }
        }
        run_posted();
        fire_timers();
        wait_and_dispatch();
    }
}

void InstrumentLoop::wake()
{
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(m_wake.get(), &one, sizeof one);
}

void InstrumentLoop::run_posted()
{
    std::vector<std::function<void()>> posted;
    {
        const std::lock_guard lock(m_mutex);
        posted.swap(m_posted);
    }
    for (const auto& action : posted) {
        action();
    }
}

void InstrumentLoop::fire_timers()
{
    // Those that the actions add come in the next round, so that descriptors get their turn.
    const auto limit = std::pair(Clock::now(), m_last_number);
    while (!m_timers.empty() && m_timers.begin()->first <= limit) {
        const std::function<void()> action = std::move(m_timers.begin()->second);
        m_timers.erase(m_timers.begin());
        action();
    }
}

int InstrumentLoop::wait_time() const
{
    if (m_timers.empty()) {
        return -1;
    }
    const auto wait =
        std::chrono::ceil<std::chrono::milliseconds>(m_timers.begin()->first.first - Clock::now());
    return static_cast<int>(std::clamp<int64_t>(wait.count(), 0, INT_MAX));
}

void InstrumentLoop::wait_and_dispatch()
{
    std::vector<pollfd> fds{{m_wake.get(), POLLIN, 0}};
    std::vector<uint64_t> numbers{0};
    for (const auto& [fd, watch] : m_watches) {
        fds.push_back({fd, watch.events, 0});
        numbers.push_back(watch.number);
    }
    if (::poll(fds.data(), fds.size(), wait_time()) < 0) {
        return; // a signal
    }
    if (fds.front().revents != 0) {
        uint64_t count = 0;
        [[maybe_unused]] const ssize_t got = ::read(m_wake.get(), &count, sizeof count);
    }
    for (size_t i = 1; i < fds.size(); ++i) {
        const auto found = m_watches.find(fds[i].fd);
        if (fds[i].revents != 0 && found != m_watches.end() && found->second.number == numbers[i]) {
            const std::function<void(short)> ready = found->second.ready; // may unwatch itself
            ready(fds[i].revents);
        }
    }
}

} // namespace orvan_web
