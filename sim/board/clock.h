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
 * The board's time, in microseconds since the board was made. It runs in real time or an integer number of
 * times faster, or is manual: then it only moves when a test advances it, and a thread in sleep_us wakes when
 * the time has been advanced to the end of its wait.
 *
 * Thread-safe. A test of a background thread waits until it sleeps, advances, and waits again:
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
     * rate: how many times faster than real time a running clock is, at least 1. Waits below a millisecond
     * are not shortened.
     */
    explicit Clock(Mode mode, unsigned rate = 1) : m_mode(mode), m_rate(rate) {}
    Clock(const Clock&) = delete;
    Clock& operator=(const Clock&) = delete;

    Mode mode() const { return m_mode; }
    uint64_t now_us() const;

    /** Waits `us` microseconds of this clock, or until release(). Returns the time at which it woke. */
    uint64_t sleep_us(uint64_t us);

    /**
     * The same for one round of a loop that polls something other than the board. On a running clock it takes
     * at least kPollUs of real time, so that such a loop costs next to nothing.
     */
    uint64_t poll_us(uint64_t us);
    static constexpr uint64_t kPollUs = 10'000;

    /** A wait of at least this is the period of a background task. */
    static constexpr uint64_t kPeriodUs = 10'000'000;

    /**
     * Between these calls a period takes real time; at the end the rest of it is shortened. The rate does not
     * make an instrument compute faster, so its first periods would otherwise end before its start-up does,
     * unlike on a real one.
     */
    void start_up_begins();
    void start_up_ends();

    /** Below this a wait paces a bus or a polling thread. */
    static constexpr uint64_t kShortUs = 1000;

    /**
     * Advances a manual clock. Threads whose wait ends in the span wake in order, each at its own time and
     * only after the previous one has left its wait. Does not wait for what they do next: a thread that
     * sleeps again within the span may find it over. Not for a thread that sleeps on the clock.
     */
    void advance(uint64_t us);

    /**
     * As advance, but lets `threads` threads fall asleep before every step and after the last one, so that a
     * loop of 5 seconds runs 24 times in a span of two minutes. False if they do not within `bound` of real
     * time; the clock then stays where it is.
     */
    bool run(uint64_t us, size_t threads, std::chrono::milliseconds bound = kBound);

    /**
     * How many threads are asleep, and a wait until they are at least `count`. False after `bound` real
     * time.
     */
    size_t sleepers() const;
    bool wait_for_sleepers(size_t count, std::chrono::milliseconds bound = kBound);

    /**
     * Ends all present and future waits. A manual clock still counts the waits requested, so that polling a
     * busy chip terminates. For the end of a test.
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
    std::condition_variable m_changed; // a thread fell asleep, or a woken one has left
    std::list<Sleeper*> m_sleepers;    // by end, then by arrival
    size_t m_leaving = 0;
    uint64_t m_now_us = 0; // manual clock only
    bool m_released = false;
    bool m_starting_up = false;
    std::thread::id m_self_advancing{};
};

/**
 * During its lifetime the waits of the thread that made it advance a manual clock instead of sleeping. For a
 * test that itself calls code that waits for hardware, while background threads sleep. One at a time on a
 * clock.
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
