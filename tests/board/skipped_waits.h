/**
 * The process's own waits for the passing of time, left out.
 */
#ifndef ORVAN_TESTS_SKIPPED_WAITS_H
#define ORVAN_TESTS_SKIPPED_WAITS_H

#include <cstdint>
#include <functional>

namespace board_test {

/**
 * While it lives, std::this_thread::sleep_for returns once `others_done` is true, and the steady clock goes
 * on by what was to be slept, on all threads. The clock keeps what it has gained; a wait for a condition with
 * a deadline lasts longer by that. One at a time.
 */
class SkippedWaits {
public:
    /** @param others_done asked on any thread: nothing is under way that would take the skip for a delay */
    explicit SkippedWaits(std::function<bool()> others_done);
    ~SkippedWaits();
    SkippedWaits(const SkippedWaits&) = delete;
    SkippedWaits& operator=(const SkippedWaits&) = delete;

    /** Time skipped so far in the process, in milliseconds. */
    static int64_t skipped_ms();
};

} // namespace board_test

#endif
