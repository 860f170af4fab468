#ifndef ORVAN_SERVICE_SERVICE_TIME_H
#define ORVAN_SERVICE_SERVICE_TIME_H

#include <chrono>
#include <time.h>

namespace orvan_service {

/**
 * The executor's clock: time that passed while no message was being executed. Time in which nothing could be
 * received from a client does not count against it.
 */
using ServiceTime = std::chrono::milliseconds;
inline constexpr ServiceTime kNever = ServiceTime::max();

/** The step of coarse_now(), rounded up. */
inline constexpr ServiceTime kCoarseStep{20};

/** The monotonic clock, coarse: it costs a few nanoseconds, and its step is small compared with every
 * timeout. */
inline ServiceTime coarse_now()
{
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return std::chrono::seconds(now.tv_sec) + ServiceTime(now.tv_nsec / 1'000'000);
}

} // namespace orvan_service

#endif
