#include "waiting_call.h"

#include <utility>

namespace orvan_service {

void WaitingCall::start(unsigned milliseconds, Attempt attempt)
{
    const auto deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
    if (attempt(Event::kTry)) {
        return;
    }
    if (milliseconds == 0) {
        attempt(Event::kTimedOut);
        return;
    }
    m_attempt = std::move(attempt);
    m_deadline = deadline;
}

WaitingCall::Attempt WaitingCall::take()
{
    m_deadline = Clock::time_point::max();
    return std::exchange(m_attempt, nullptr);
}

void WaitingCall::try_again()
{
    if (!m_attempt) {
        return;
    }
    const auto deadline = m_deadline;
    Attempt attempt = take();
    if (attempt(Event::kTry)) {
        return;
    }
    if (deadline <= Clock::now()) {
        attempt(Event::kTimedOut);
        return;
    }
    m_attempt = std::move(attempt);
    m_deadline = deadline;
}

void WaitingCall::abort()
{
    if (m_attempt) {
        take()(Event::kAborted);
    }
}

} // namespace orvan_service
