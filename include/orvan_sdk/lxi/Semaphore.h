/**
 * A counting semaphore with time-outs in milliseconds and a status in place of exceptions.
 */
#ifndef ORVAN_SDK_SEMAPHORE_H
#define ORVAN_SDK_SEMAPHORE_H

#include <pthread.h>

#include "orvan_sdk/orvan_api.h"

namespace HaldeElec::Orvan {

using u32 = unsigned long; // 32 bits on the instrument

enum tOSStatus : int {
    kOSStatusSuccess = 0,
    kOSStatusHardwareNotFound = 1,
    kOSStatusHardwareInUse = 2,
    kOSStatusHardwareFault = 3,
    kOSStatusResourceUnavailable = 4,
    kOSStatusMemoryFull = 5,
    kOSStatusOperationTimedOut = 6,
    kOSStatusSocketError = 7,
    kOSStatusSoftwareFault = 8,
};

constexpr bool OSStatusIsFatal(tOSStatus status)
{
    return status != kOSStatusSuccess;
}
constexpr bool OSStatusIsNonfatal(tOSStatus status)
{
    return status == kOSStatusSuccess;
}

inline constexpr u32 kOSTimeoutNone = 0;
inline constexpr u32 kOSTimeoutInfinite = 0xFFFFFFFF;

/** All calls are safe on any number of threads. */
class ORVAN_API COSSemaphore {
public:
    /**
     * @param InitialCount units that are free at once; it is not held to `MaxCount`
     * @param MaxCount     units that Release brings the count up to
     */
    COSSemaphore(u32 InitialCount, u32 MaxCount);
    /** Nobody may wait any more. */
    ~COSSemaphore();
    COSSemaphore(const COSSemaphore&) = delete;
    COSSemaphore& operator=(const COSSemaphore&) = delete;

    /**
     * Takes a unit, waiting for one if there is none.
     *
     * @param Timeout ms, kOSTimeoutNone or kOSTimeoutInfinite. The end of the wait is a time of the wall
     *                clock: setting the clock makes it longer or shorter.
     * @param rStatus kOSStatusSuccess, or kOSStatusOperationTimedOut when no unit came free
     */
    void Acquire(u32 Timeout, tOSStatus& rStatus) { (this->*m_fpAcquire)(Timeout, rStatus); }

    /** Gives a unit back and wakes one who waits. At the limit it does nothing. */
    void Release() { (this->*m_fpRelease)(); }

    /** Always false. */
    bool IsException() const { return false; }

private:
    using AcquireFPtr = void (COSSemaphore::*)(u32 Timeout, tOSStatus& rStatus);
    using ReleaseFPtr = void (COSSemaphore::*)();

    // A semaphore of one unit as a bare mutex. It is not in use: the timed lock reads the time-out as a time
    // of day, and nothing unlocks.
    void Acquire1(u32 Timeout, tOSStatus& rStatus);
    void Release1();

    void AcquireN(u32 Timeout, tOSStatus& rStatus);
    void ReleaseN();

    // Waits for a unit until `Timeout` ms from now. Under the mutex.
    void wait_for_unit(u32 Timeout);

    pthread_cond_t m_Condition = PTHREAD_COND_INITIALIZER; // a unit came free
    pthread_mutex_t m_Mutex = PTHREAD_MUTEX_INITIALIZER;   // guards the count
    u32 m_Count;
    const u32 m_MaxCount;
    AcquireFPtr m_fpAcquire;
    ReleaseFPtr m_fpRelease;
};

} // namespace HaldeElec::Orvan

#endif
