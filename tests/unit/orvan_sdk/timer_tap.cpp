#include "timer_tap.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "support/next_symbol.h"

using orvan_test::next_symbol;

namespace {

struct Tap {
    std::mutex mutex;
    bool active = false;
    bool armed = false;
    int create_error = 0;
    sigevent event{};
    std::vector<std::string> calls;
};

Tap& tap()
{
    static Tap* const instance = new Tap;
    return *instance;
}

// Identifies a tapped timer.
timer_t tapped_timer()
{
    return &tap();
}

std::string spelt(int flags, const itimerspec& value)
{
    if (value.it_value.tv_sec == 0 && value.it_value.tv_nsec == 0) {
        return "disarm";
    }
    char text[96];
    std::snprintf(text, sizeof text, "set %ld.%09ld", value.it_value.tv_sec, value.it_value.tv_nsec);
    std::string all = text;
    if (flags != 0) {
        all += " absolute";
    }
    if (value.it_interval.tv_sec != 0 || value.it_interval.tv_nsec != 0) {
        all += " repeating";
    }
    return all;
}

} // namespace

extern "C" int timer_create(clockid_t clock, sigevent* event, timer_t* timer) noexcept
{
    static auto* const real = next_symbol<int(clockid_t, sigevent*, timer_t*)>("timer_create");
    std::unique_lock lock(tap().mutex);
    if (!tap().active) {
        lock.unlock();
        return real(clock, event, timer);
    }
    tap().calls.push_back(std::string("create ") +
                          (clock == CLOCK_MONOTONIC ? "CLOCK_MONOTONIC" : "other clock") +
                          (event->sigev_notify == SIGEV_THREAD ? " SIGEV_THREAD" : " other notification"));
    if (tap().create_error != 0) {
        errno = tap().create_error;
        return -1;
    }
    tap().event = *event;
    *timer = tapped_timer();
    return 0;
}

extern "C" int timer_settime(timer_t timer, int flags, const itimerspec* value, itimerspec* old) noexcept
{
    static auto* const real = next_symbol<int(timer_t, int, const itimerspec*, itimerspec*)>("timer_settime");
    if (timer != tapped_timer()) {
        return real(timer, flags, value, old);
    }
    const std::lock_guard lock(tap().mutex);
    tap().calls.push_back(spelt(flags, *value));
    tap().armed = tap().calls.back() != "disarm";
    return 0;
}

namespace orvan_test {

TimerTap::TimerTap()
{
    const std::lock_guard lock(tap().mutex);
    tap().active = true;
}

TimerTap::~TimerTap()
{
    const std::lock_guard lock(tap().mutex);
    tap().active = false;
    tap().create_error = 0;
    tap().calls.clear();
}

std::vector<std::string> TimerTap::calls() const
{
    const std::lock_guard lock(tap().mutex);
    return tap().calls;
}

void TimerTap::clear()
{
    const std::lock_guard lock(tap().mutex);
    tap().calls.clear();
}

void TimerTap::fail_create(int error)
{
    const std::lock_guard lock(tap().mutex);
    tap().create_error = error;
}

bool TimerTap::armed() const
{
    const std::lock_guard lock(tap().mutex);
    return tap().armed;
}

void TimerTap::fire()
{
    sigevent event{};
    {
        const std::lock_guard lock(tap().mutex);
        event = tap().event;
        tap().armed = false;
    }
    if (event.sigev_notify_function == nullptr) {
        throw std::logic_error("no timer has been made");
    }
    std::thread(event.sigev_notify_function, event.sigev_value).join();
}

} // namespace orvan_test
