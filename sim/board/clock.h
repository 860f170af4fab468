#ifndef ORVAN_SIM_BOARD_CLOCK_H
#define ORVAN_SIM_BOARD_CLOCK_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <list>
#include <mutex>
#include <thread>

namespace sim_board {

/**
 * The board's time, in microseconds since the board was made. It runs by itself, as fast as the world's or a
 * whole number of times faster, or stands still until a test advances it; then a thread in sleep_us wakes
 * only when the time has been advanced to the end of its wait.
 *
 * Thread-safe. A test of a background thread waits for it to fall asleep, advances, and waits again:
 *
 *     clock.wait_for_sleepers(1);
 *     clock.advance(120'000'000);
 *     clock.wait_for_sleepers(1);      // the next cycle is done
 */
class Clock {
public:
    enum class Mode { kRealTime, kManual };
    static constexpr std::chrono::milliseconds kBound{10000};

    /**
     * rate: how many times faster than the world's a clock in real time runs, at least 1. Waits below a
     * millisecond are waited as they are all the same.
     */
    explicit Clock(Mode mode, unsigned rate = 1) : m_mode(mode), m_rate(rate) {}
    Clock(const Clock&) = delete;
    Clock& operator=(const Clock&) = delete;

    Mode mode() const { return m_mode; }
    uint64_t now_us() const;

    /** Waits `us` microseconds of this clock, or until release(). Result: the time at which it woke. */
    uint64_t sleep_us(uint64_t us);

    /**
     * The same for one more round of a loop that polls what is not on the board. On a clock that runs it
     * takes at least kPollUs of the world's time, so that such a loop costs next to nothing.
     */
    uint64_t poll_us(uint64_t us);
    static constexpr uint64_t kPollUs = 10'000;

    /** From this on a wait is a period of something that runs all the time. */
    static constexpr uint64_t kPeriodUs = 10'000'000;

    /**
     * Between these a period takes as long as in the world; at the end what is left of it is shortened. The
     * rate does not make an instrument compute faster, so its first periods would end before its start does,
     * which they do not on a real one.
     */
    void start_up_begins();
    void start_up_ends();

    /** Below this a wait paces a bus or a polling thread. */
    static constexpr uint64_t kShortUs = 1000;

    /**
     * Moves a manual clock on. The threads whose wait ends in that time wake in the order of their ends,
     * each at its own time and only after the one before has left its wait. Does not wait for what they do
     * next: a thread that sleeps again within the span may find the span over. Call it from a thread that is
     * not itself asleep on the clock.
     */
    void advance(uint64_t us);

    /**
     * As advance, but lets `threads` threads fall asleep before every step and after the last one, so that a
     * loop of 5 seconds runs 24 times in a span of two minutes. False if they do not within `bound` of real
     * time; the time then stands where it got to.
     */
    bool run(uint64_t us, size_t threads, std::chrono::milliseconds bound = kBound);

    /**
     * How many threads are asleep, and a wait until they are at least `count`. False after `bound` real
     * time.
     */
    size_t sleepers() const;
    bool wait_for_sleepers(size_t count, std::chrono::milliseconds bound = kBound);

    /**
     * Ends all waits, now and from now on. A manual clock still counts the waits that are asked for, so that
     * a poll of a busy chip comes to its end. For the end of a test.
     */
    void release();

private:
    friend class SelfAdvancing;
    struct Sleeper {
        uint64_t end_us;
        bool woken = false;
        std::condition_variable wake{};
    };

    uint64_t now_locked() const;
    void sleep_manual(std::unique_lock<std::mutex>& lock, uint64_t us);
    void sleep_real(std::unique_lock<std::mutex>& lock, std::chrono::nanoseconds span,
                    bool until_start_up_ends = false);
    uint64_t sleep_start_up(std::unique_lock<std::mutex>& lock, uint64_t us);
    bool asleep_within(std::unique_lock<std::mutex>& lock, size_t count, std::chrono::milliseconds bound);

    const Mode m_mode;
    const unsigned m_rate;
    const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    std::mutex m_advancing; // one advance at a time; taken before m_mutex
    mutable std::mutex m_mutex;
    std::condition_variable m_changed; // a thread fell asleep, or one that was woken has left
    std::list<Sleeper*> m_sleepers;    // by end, then by arrival
    size_t m_leaving = 0;
    uint64_t m_now_us = 0; // manual clock only
    bool m_released = false;
    bool m_starting_up = false;
    std::thread::id m_self_advancing{};
};

/**
 * While it lives, the waits of the thread that made it do not sleep: they advance a manual clock by
 * themselves. For a test that calls on its own thread what waits for hardware, while background threads
 * sleep. One at a time on a clock.
 */
class SelfAdvancing {
public:
    explicit SelfAdvancing(Clock& clock);
    ~SelfAdvancing();
    SelfAdvancing(const SelfAdvancing&) = delete;
    SelfAdvancing& operator=(const SelfAdvancing&) = delete;

private:
    Clock& m_clock;
};

} // namespace sim_board

#endif
