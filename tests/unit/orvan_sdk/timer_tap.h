/**
 * Intercepts POSIX timers: records the calls and lets timers expire when
 * the test says so, never by themselves.
 */
#ifndef ORVAN_TESTS_TIMER_TAP_H
#define ORVAN_TESTS_TIMER_TAP_H

#include <string>
#include <vector>

namespace orvan_test {

/** One at a time. Made before the timer is: a timer of a former tap is still one of the system's. */
class TimerTap {
public:
    TimerTap();
    ~TimerTap();
    TimerTap(const TimerTap&) = delete;
    TimerTap& operator=(const TimerTap&) = delete;

    /**
     * Calls in order: "create CLOCK_MONOTONIC SIGEV_THREAD", "set 3.000000000" (relative, one shot; others
     * are spelt out), "disarm".
     */
    std::vector<std::string> calls() const;
    void clear();

    /** From now on timer_create fails with this error; 0 for not. */
    void fail_create(int error);

    /** True while a timer runs. */
    bool armed() const;

    /** Calls the notification on a new thread, whether or not the timer runs, and waits for its end.
     */
    void fire();
};

} // namespace orvan_test

#endif
