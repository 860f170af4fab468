/**
 * The event loop of a simulator process: descriptors, timers, and the request to stop.
 *
 * All calls but `stop` must come from the loop's own thread, so nothing that runs on it needs a lock.
 */
#ifndef ORVAN_SIM_CONTROL_EVENT_LOOP_H
#define ORVAN_SIM_CONTROL_EVENT_LOOP_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <utility>
#include <vector>

#include <poll.h>

#include "unique_fd.h"

namespace sim_control {

/** What a watched descriptor calls. It may watch, unwatch and destroy anything, itself included. */
class EventSink {
public:
    virtual ~EventSink() = default;

    /** `revents` as returned by poll(2). */
    virtual void on_ready(short revents) = 0;
};

class EventLoop {
public:
    using Clock = std::chrono::steady_clock;
    using TimerId = uint64_t;

    EventLoop();

    /** Calls the sink whenever one of `events` (POLLIN, POLLOUT) holds. One watch per descriptor. */
    void watch(int fd, short events, EventSink& sink);

    /** Replaces the events of a watched descriptor; with 0 only hang-up and error are reported. */
    void change(int fd, short events);

    /** Call it before the descriptor is closed. No sink is called for the descriptor after it. */
    void unwatch(int fd);

    /** Calls the action once, `delay` from now. */
    TimerId after(std::chrono::milliseconds delay, std::function<void()> action);

    /** Cancels a timer; no effect if it has fired or never existed. */
    void cancel(TimerId id);

    /** Runs until `stop`; returns at once if that was called before. */
    void run();

    /** Ends `run`. From any thread and from a signal handler. */
    void stop() noexcept;

private:
    int wait_time() const;
    void fire_timers();
    void dispatch();

    orvan_common::UniqueFd m_stop;
    bool m_stopped = false;
    std::vector<pollfd> m_polls;     // first entry: m_stop; a removed entry has fd -1 until dispatch ends
    std::vector<EventSink*> m_sinks; // parallel to m_polls
    std::map<std::pair<Clock::time_point, TimerId>, std::function<void()>> m_timers;
    TimerId m_last_timer = 0;
};

} // namespace sim_control

#endif
