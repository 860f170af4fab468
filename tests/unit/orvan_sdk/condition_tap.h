/**
 * Fake wall clock and condition waits.
 *
 * The program's own `gettimeofday`, `pthread_cond_wait` and `pthread_cond_timedwait` override the C
 * library's; without a ConditionTap they call those.
 */
#ifndef ORVAN_TESTS_CONDITION_TAP_H
#define ORVAN_TESTS_CONDITION_TAP_H

#include <ctime>
#include <deque>
#include <functional>
#include <vector>

#include <sys/time.h>

namespace orvan_test {

/** While it lives, calls of the thread that made it are answered here. One at a time. */
class ConditionTap {
public:
    ConditionTap();
    ~ConditionTap();
    ConditionTap(const ConditionTap&) = delete;
    ConditionTap& operator=(const ConditionTap&) = delete;

    timeval now = {};
    /** What each wait does and returns in turn. After the last one a wait returns ETIMEDOUT; one without a
     *  deadline ends the process. */
    std::deque<std::function<int()>> waits;
    /** Deadlines of the waits so far that had one. */
    std::vector<timespec> deadlines;
};

} // namespace orvan_test

#endif
