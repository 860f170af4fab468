#include "round_trip.h"

#include <algorithm>

namespace orvan_maint {

RoundTrip::RoundTrip(const Timing& timing) : m_timing(timing), m_wait(timing.first_wait) {}

void RoundTrip::measured(std::chrono::microseconds time)
{
    if (m_smoothed.count() < 0) {
        m_smoothed = time;
        m_variation = time / 2;
    } else {
        const auto error = time > m_smoothed ? time - m_smoothed : m_smoothed - time;
        m_variation = (3 * m_variation + error) / 4;
        m_smoothed = (7 * m_smoothed + time) / 8;
    }
    m_wait = std::clamp(m_smoothed + 4 * m_variation, m_timing.least_wait, m_timing.longest_wait);
}

void RoundTrip::missed()
{
    m_wait = std::min(2 * m_wait, m_timing.longest_wait);
}

} // namespace orvan_maint
