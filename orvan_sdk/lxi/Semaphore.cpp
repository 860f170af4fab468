#include "orvan_sdk/lxi/Semaphore.h"

#include <cerrno>
#include <ctime>

#include <sys/time.h>

// The simple pair is nevertheless not used: see the header.
#define IMPL_AS_SIMPLE_MUTEX_IF_POSSIBLE TRUE

namespace HaldeElec::Orvan {

namespace {

constexpr u32 kMsPerSecond = 1000;
constexpr long kNsPerMs = 1000000;
constexpr long kNsPerUs = 1000;
constexpr long kNsPerSecond = 1000000000;

timespec span_of(u32 Timeout)
{
    timespec span = {};
    span.tv_sec = static_cast<time_t>(Timeout / kMsPerSecond);
    span.tv_nsec = static_cast<long>(Timeout % kMsPerSecond) * kNsPerMs;
    return span;
}

// Wall clock time, as the condition has default attributes.
timespec deadline_after(u32 Timeout)
{
    timeval now = {};
    ::gettimeofday(&now, nullptr);
    timespec deadline = span_of(Timeout);
    deadline.tv_sec += now.tv_sec;
    deadline.tv_nsec += now.tv_usec * kNsPerUs;
    if (deadline.tv_nsec >= kNsPerSecond) {
        deadline.tv_nsec -= kNsPerSecond;
        ++deadline.tv_sec;
    }
    return deadline;
}

} // namespace

COSSemaphore::COSSemaphore(u32 InitialCount, u32 MaxCount)
    : m_Count(InitialCount), m_MaxCount(MaxCount), m_fpAcquire(&COSSemaphore::AcquireN),
      m_fpRelease(&COSSemaphore::ReleaseN)
{
}

COSSemaphore::~COSSemaphore()
{
    ::pthread_cond_destroy(&m_Condition);
    ::pthread_mutex_destroy(&m_Mutex);
}

void COSSemaphore::AcquireN(u32 Timeout, tOSStatus& rStatus)
{
    ::pthread_mutex_lock(&m_Mutex);
    if (m_Count == 0 && Timeout == kOSTimeoutInfinite) {
        while (m_Count == 0) {
            ::pthread_cond_wait(&m_Condition, &m_Mutex);
        }
    } else if (m_Count == 0 && Timeout != kOSTimeoutNone) {
        wait_for_unit(Timeout);
    }
    // Even after a timeout: a unit released at the last moment is taken.
    if (m_Count != 0) {
        --m_Count;
        rStatus = kOSStatusSuccess;
    } else {
        rStatus = kOSStatusOperationTimedOut;
    }
    ::pthread_mutex_unlock(&m_Mutex);
}

void COSSemaphore::wait_for_unit(u32 Timeout)
{
    const timespec deadline = deadline_after(Timeout);
    int result = 0;
    do {
        result = ::pthread_cond_timedwait(&m_Condition, &m_Mutex, &deadline);
    } while (result == EINTR || (result == 0 && m_Count == 0));
}

void COSSemaphore::ReleaseN()
{
    ::pthread_mutex_lock(&m_Mutex);
    if (m_Count < m_MaxCount) {
        ++m_Count;
        ::pthread_cond_signal(&m_Condition);
    }
    ::pthread_mutex_unlock(&m_Mutex);
}

void COSSemaphore::Acquire1(u32 Timeout, tOSStatus& rStatus)
{
    int result = 0;
    if (Timeout == kOSTimeoutNone) {
        result = ::pthread_mutex_trylock(&m_Mutex);
    } else if (Timeout == kOSTimeoutInfinite) {
        result = ::pthread_mutex_lock(&m_Mutex);
    } else {
        const timespec time_of_day = span_of(Timeout);
        result = ::pthread_mutex_timedlock(&m_Mutex, &time_of_day);
    }
    switch (result) {
    case 0:
        rStatus = kOSStatusSuccess;
        break;
    case EBUSY:
        rStatus = kOSStatusOperationTimedOut;
        break;
    default:
        rStatus = kOSStatusSoftwareFault;
        break;
    }
}

void COSSemaphore::Release1() {}

} // namespace HaldeElec::Orvan
