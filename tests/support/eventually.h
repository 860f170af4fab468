#ifndef ORVAN_TESTS_SUPPORT_EVENTUALLY_H
#define ORVAN_TESTS_SUPPORT_EVENTUALLY_H

#include <algorithm>
#include <chrono>
#include <thread>

namespace orvan_test {

/** Waits for a condition set by another thread or process; false when `bound` passes first. */
template <typename Condition>
bool eventually(Condition condition, std::chrono::milliseconds bound = std::chrono::seconds(20))
{
    constexpr std::chrono::milliseconds kLongestPause{20};
    const auto deadline = std::chrono::steady_clock::now() + bound;
    for (std::chrono::milliseconds pause{1}; !condition(); pause = std::min(2 * pause, kLongestPause)) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(pause);
    }
    return true;
}

} // namespace orvan_test

#endif
