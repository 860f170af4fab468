/**
 * A counting semaphore with timeouts in milliseconds and a status instead of exceptions.
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
     * @param InitialCount units initially free; not limited to `MaxCount`
     * @param MaxCount     count up to which Release adds units
     */
    COSSemaphore(u32 InitialCount, u32 MaxCount);
    /** No thread may be waiting. */
    ~COSSemaphore();
    COSSemaphore(const COSSemaphore&) = delete;
    COSSemaphore& operator=(const COSSemaphore&) = delete;

    /**
     * Takes a unit, waiting for one if there is none.
     *
     * @param Timeout ms, kOSTimeoutNone or kOSTimeoutInfinite. The deadline is wall clock
     *                time: setting the clock lengthens or shortens the wait.
     * @param rStatus kOSStatusSuccess, or kOSStatusOperationTimedOut when no unit became free
     */
    void Acquire(u32 Timeout, tOSStatus& rStatus) { (this->*m_fpAcquire)(Timeout, rStatus); }

    /** Returns a unit and wakes one waiter. At the limit it does nothing. */
    void Release() { (this->*m_fpRelease)(); }

    /** Always false. */
    bool IsException() const { return false; }

private:
    using AcquireFPtr = void (COSSemaphore::*)(u32 Timeout, tOSStatus& rStatus);
    using ReleaseFPtr = void (COSSemaphore::*)();

    // A semaphore of one unit as a bare mutex. Unused: the timed lock takes the timeout as an absolute time,
    // and nothing unlocks.
    void Acquire1(u32 Timeout, tOSStatus& rStatus);
    void Release1();

    void AcquireN(u32 Timeout, tOSStatus& rStatus);
    void ReleaseN();

    // Waits for a unit until `Timeout` ms from now. Under the mutex.
    void wait_for_unit(u32 Timeout);

    pthread_cond_t m_Condition = PTHREAD_COND_INITIALIZER; // a unit became free
    pthread_mutex_t m_Mutex = PTHREAD_MUTEX_INITIALIZER;   // guards the count
    u32 m_Count;
    const u32 m_MaxCount;
    AcquireFPtr m_fpAcquire;
    ReleaseFPtr m_fpRelease;
};

} // namespace HaldeElec::Orvan

#endif
