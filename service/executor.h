#ifndef ORVAN_SERVICE_EXECUTOR_H
#define ORVAN_SERVICE_EXECUTOR_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include <sys/epoll.h>

#include "counters/counters.h"
#include "message_memory.h"
#include "session.h"
#include <unique_fd.h>

namespace orvan_service {

/**
 * The one thread that executes messages. It waits for all sessions together, takes one message of a ready
 * session at a time, and moves on to the next: a session's next message comes after one of every other
 * session that was ready before it, so a client with a thousand lines delays the others by only one.
 */
class Executor {
public:
    Executor();
    /** Waits for the running message without a time limit; call end() first to set one. */
    ~Executor();
    Executor(const Executor&) = delete;
    Executor& operator=(const Executor&) = delete;

    /** Adds `session`. Any thread. Throws std::system_error if it can't be polled. */
    void add(std::unique_ptr<Session> session);

    /**
     * Lets the running message finish, drops those not begun, and destroys all sessions that need not stay
     * open. Any thread. May be called again.
     *
     * @return false if a message was still running after `patience`; then the object must not be destroyed,
     * and the process has to exit without that.
     */
    bool end(std::chrono::milliseconds patience);

    /** Lets every session in Session::Wait::kRetry advance. Any thread. */
    void retry();

    /** Sessions being served. Any thread. */
    size_t sessions() const;

    /** Number of sessions for which `counts` returns true; no session is destroyed during the call. Any
     * thread. */
    size_t count(const std::function<bool(const Session&)>& counts) const;

    /** What has been executed, and more that is counted. Any thread. */
    Counters& counters() { return m_counters; }
    const Counters& counters() const { return m_counters; }

    struct Running {
        std::string client; /**< its address */
        Counters::Clock::duration time;
    };
    /** Whose message is being executed, and for how long. Any thread. */
    std::optional<Running> running() const;
    /** Its session. The executor's thread. */
    const Session* running_session() const { return m_running.load(std::memory_order_relaxed); }

private:
    void run();
    void collect(int timeout_ms);
    void step(Session& session, bool readable);
    void become(Session& session, Session::Wait wait);
    void watch(Session& session);
    static uint32_t events_of(const Session& session);
    void execute_round();
    void execute(Session& session);
    void queue_again();
    void lend_memory();
    void advance_retrying();
    void expire();
    void bury();
    int timeout() const;
    ServiceTime now() const;

    const orvan_common::UniqueFd m_epoll;
    const orvan_common::UniqueFd m_wake; // an event descriptor: end() or retry() was called
    std::atomic<bool> m_ending = false;
    std::atomic<bool> m_retry = false;
    Counters m_counters;
    std::atomic<const Session*> m_running = nullptr;
    std::atomic<Counters::Clock::rep> m_running_since = 0;

    // The executor's thread only.
    std::vector<epoll_event> m_events;
    std::deque<Session*> m_turns;
    std::vector<Session*> m_again; // had a turn and have another message
    std::vector<Session*> m_over;
    std::deque<Session*> m_memory_line;
    ServiceTime m_worked{0};              // time spent executing messages
    ServiceTime m_next_deadline = kNever; // no later than the first one

    mutable std::mutex m_mutex; // guards what follows
    std::condition_variable m_ended;
    std::unordered_map<const Session*, std::unique_ptr<Session>> m_sessions;
    bool m_done = false;

    std::thread m_thread;
};

} // namespace orvan_service

#endif
