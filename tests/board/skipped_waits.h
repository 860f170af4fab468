/**
 * Skips the waits of the process.
 */
#ifndef ORVAN_TESTS_SKIPPED_WAITS_H
#define ORVAN_TESTS_SKIPPED_WAITS_H

#include <cstdint>
#include <functional>

namespace board_test {

/**
 * While it lives, std::this_thread::sleep_for returns once `others_done` is true, and the steady clock
 * advances by the skipped time, on all threads. The advance remains, so a wait for a condition with a
 * deadline lasts that much longer. One at a time.
 */
class SkippedWaits {
public:
    /** @param others_done called on any thread; true when the skip delays nothing in progress */
    explicit SkippedWaits(std::function<bool()> others_done);
    ~SkippedWaits();
    SkippedWaits(const SkippedWaits&) = delete;
    SkippedWaits& operator=(const SkippedWaits&) = delete;

    /** Time skipped so far in the process, in milliseconds. */
    static int64_t skipped_ms();
};

} // namespace board_test

#endif
