#ifndef ORVAN_WEB_INSTRUMENT_LOOP_H
#define ORVAN_WEB_INSTRUMENT_LOOP_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include <unique_fd.h>

namespace orvan_web {

/**
 * The event loop of the instrument thread: descriptors, timers, and functions posted by other threads.
 *
 * All calls but post() and stop() must come from the thread of run(), or from any while it does not run; so
 * nothing that runs on it needs a lock. Without descriptors that are ready and timers that are due it sleeps.
 */
class InstrumentLoop {
public:
    using Clock = std::chrono::steady_clock;
    using TimerId = uint64_t;

    /** Throws std::system_error if it gets no descriptor. */
    InstrumentLoop();
    /** Calls nothing of what is left. */
    ~InstrumentLoop();
    InstrumentLoop(const InstrumentLoop&) = delete;
    InstrumentLoop& operator=(const InstrumentLoop&) = delete;

    /** Calls `ready` with what poll(2) reports whenever one of `events` (POLLIN, POLLOUT) holds; POLLHUP and
     *  POLLERR are always reported. Replaces the descriptor's present watch. */
    void watch(int fd, short events, std::function<void(short revents)> ready);

    /** Call it before the descriptor is closed. Its function is not called again. */
    void unwatch(int fd);

    /** Calls the action once, `delay` from now. */
    TimerId after(std::chrono::milliseconds delay, std::function<void()> action);

    /** No effect if the timer has fired or never existed. */
    void cancel(TimerId id);

    /**
     * Calls `done` once: when the last copy of the result is gone, or after `bound`. For several things that
     * are waited for together, none of which may hold the others up.
     */
    std::shared_ptr<void> join(std::chrono::milliseconds bound, std::function<void()> done);

    /** Has the loop call the action soon, after all that was posted before. Any thread. */
    void post(std::function<void()> action);

    /** Runs until stop(); returns at once if that was called before. What is then left is not called. */
    void run();

    /** Ends run(). Any thread. */
    void stop();

private:
    struct Watch {
        short events;
        uint64_t number; // distinguishes it from a later watch on the same descriptor
        std::function<void(short)> ready;
    };

    void wake();
    void run_posted();
    void fire_timers();
    void wait_and_dispatch();
    int wait_time() const;

    orvan_common::UniqueFd m_wake;
    std::map<int, Watch> m_watches;
    std::map<std::pair<Clock::time_point, TimerId>, std::function<void()>> m_timers;
    uint64_t m_last_number = 0;

    std::mutex m_mutex; // guards what follows
    std::vector<std::function<void()>> m_posted;
    bool m_stopped = false;
    bool m_closed = false; // nothing is posted any more
};

} // namespace orvan_web

#endif
