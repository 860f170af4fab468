#ifndef ORVAN_SERVICE_VXI11_WAITING_CALL_H
#define ORVAN_SERVICE_VXI11_WAITING_CALL_H

#include <chrono>
#include <functional>

namespace orvan_service {

/** A call that cannot be answered yet, if there is one. One thread. */
class WaitingCall {
public:
    using Clock = std::chrono::steady_clock;

    enum class Event { kTry, kTimedOut, kAborted };
    /** Answers the call, or returns false if it has to wait, which only kTry allows. It may call start() for
     *  what it has to wait for next, and may destroy this object. */
    using Attempt = std::function<bool(Event)>;

    /** Tries at once, and keeps the call for `milliseconds` if it has to wait. No other may be waiting. */
    void start(unsigned milliseconds, Attempt attempt);
    void try_again();
    void abort();

    /** When to call try_again() at the latest. */
    Clock::time_point deadline() const { return m_deadline; }

private:
    Attempt take();

    Attempt m_attempt;
    Clock::time_point m_deadline = Clock::time_point::max();
};

} // namespace orvan_service

#endif
