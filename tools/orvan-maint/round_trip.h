#ifndef ORVAN_MAINT_ROUND_TRIP_H
#define ORVAN_MAINT_ROUND_TRIP_H

#include <chrono>

namespace orvan_maint {

/** The times of a transfer. */
struct Timing {
    std::chrono::microseconds first_wait;   /**< for an acknowledgement, until one has been measured */
    std::chrono::microseconds least_wait;   /**< lower limit */
    std::chrono::microseconds longest_wait; /**< upper limit */
    std::chrono::milliseconds give_up;      /**< without any acknowledgement */
};

/** Time-out for an acknowledgement, from those measured (RFC 6298). */
class RoundTrip {
public:
    explicit RoundTrip(const Timing& timing);

    std::chrono::microseconds wait() const { return m_wait; }

    /** One arrived this long after a frame that was sent once. */
    void measured(std::chrono::microseconds time);

    /** None arrived: doubles the time-out. */
    void missed();

private:
    Timing m_timing;
    std::chrono::microseconds m_wait;
    std::chrono::microseconds m_smoothed{-1};
    std::chrono::microseconds m_variation{0};
};

} // namespace orvan_maint

#endif
