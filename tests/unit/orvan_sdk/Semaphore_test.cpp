#include <atomic>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "condition_tap.h"
#include "orvan_sdk/lxi/Semaphore.h"

using namespace HaldeElec::Orvan;
using orvan_test::ConditionTap;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

// Nothing else calls the simple pair, and the state at the end of a wait is set during the wait.
template <void (COSSemaphore::*kAcquire)(u32, tOSStatus&), void (COSSemaphore::*kRelease)(),
          pthread_mutex_t COSSemaphore::*kMutex, u32 COSSemaphore::*kCount>
struct SemaphoreInside {
    friend void simple_acquire(COSSemaphore& semaphore, u32 timeout, tOSStatus& status)
    {
        (semaphore.*kAcquire)(timeout, status);
    }
    friend void simple_release(COSSemaphore& semaphore) { (semaphore.*kRelease)(); }
    friend pthread_mutex_t& mutex_of(COSSemaphore& semaphore) { return semaphore.*kMutex; }
    friend u32& count_of(COSSemaphore& semaphore) { return semaphore.*kCount; }
};
void simple_acquire(COSSemaphore& semaphore, u32 timeout, tOSStatus& status);
void simple_release(COSSemaphore& semaphore);
pthread_mutex_t& mutex_of(COSSemaphore& semaphore);
u32& count_of(COSSemaphore& semaphore);
template struct SemaphoreInside<&COSSemaphore::Acquire1, &COSSemaphore::Release1, &COSSemaphore::m_Mutex,
                                &COSSemaphore::m_Count>;

constexpr auto kNoStatus = static_cast<tOSStatus>(99);

tOSStatus acquire(COSSemaphore& semaphore, u32 timeout)
{
    tOSStatus status = kNoStatus;
    semaphore.Acquire(timeout, status);
    return status;
}

TEST(SemaphoreValues, StatusesHaveFixedNumbers)
{
    EXPECT_EQ((std::vector<int>{kOSStatusSuccess, kOSStatusHardwareNotFound, kOSStatusHardwareInUse,
                                kOSStatusHardwareFault, kOSStatusResourceUnavailable, kOSStatusMemoryFull,
                                kOSStatusOperationTimedOut, kOSStatusSocketError, kOSStatusSoftwareFault}),
              (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(kOSTimeoutNone, 0u);
    EXPECT_EQ(kOSTimeoutInfinite, 0xFFFFFFFFu);
    EXPECT_TRUE((std::is_same_v<u32, unsigned long>));
}

TEST(SemaphoreValues, EveryStatusButSuccessIsFatal)
{
    EXPECT_FALSE(OSStatusIsFatal(kOSStatusSuccess));
    EXPECT_TRUE(OSStatusIsNonfatal(kOSStatusSuccess));
    for (int value = 1; value <= 8; ++value) {
        EXPECT_TRUE(OSStatusIsFatal(static_cast<tOSStatus>(value)));
        EXPECT_FALSE(OSStatusIsNonfatal(static_cast<tOSStatus>(value)));
    }
}

TEST(Semaphore, HasNoVirtualOperationsAndNoException)
{
    EXPECT_FALSE(std::is_polymorphic_v<COSSemaphore>);
    const COSSemaphore semaphore(0, 1);
    EXPECT_FALSE(semaphore.IsException());
}

TEST(Semaphore, InitialCountIsAvailable)
{
    COSSemaphore semaphore(3, 5);
    for (int unit = 0; unit < 3; ++unit) {
        EXPECT_EQ(acquire(semaphore, kOSTimeoutNone), kOSStatusSuccess);
    }
    EXPECT_EQ(acquire(semaphore, kOSTimeoutNone), kOSStatusOperationTimedOut);
}

TEST(Semaphore, FreeUnitIsTakenWithEveryTimeOut)
{
    const ConditionTap tap;
    for (const u32 timeout : {kOSTimeoutNone, u32{1}, u32{1500}, kOSTimeoutInfinite}) {
        COSSemaphore semaphore(1, 1);
        EXPECT_EQ(acquire(semaphore, timeout), kOSStatusSuccess);
        EXPECT_EQ(count_of(semaphore), 0u);
    }
    EXPECT_TRUE(tap.deadlines.empty()); // without a wait
}

TEST(Semaphore, WithoutATimeOutAZeroCountReturnsAtOnce)
{
    const ConditionTap tap;
    COSSemaphore semaphore(0, 1);
    EXPECT_EQ(acquire(semaphore, kOSTimeoutNone), kOSStatusOperationTimedOut);
    EXPECT_TRUE(tap.deadlines.empty());
}

TEST(Semaphore, ReleaseAtTheLimitDoesNothing)
{
    COSSemaphore semaphore(0, 1);
    semaphore.Release();
    semaphore.Release();
    EXPECT_EQ(count_of(semaphore), 1u);
    EXPECT_EQ(acquire(semaphore, kOSTimeoutNone), kOSStatusSuccess);
    EXPECT_EQ(acquire(semaphore, kOSTimeoutNone), kOSStatusOperationTimedOut);
}

TEST(Semaphore, ReleaseCountsUpToTheLimit)
{
    COSSemaphore semaphore(0, 3);
    for (const u32 count : {1u, 2u, 3u, 3u, 3u}) {
        semaphore.Release();
        EXPECT_EQ(count_of(semaphore), count);
    }
}

TEST(Semaphore, CountAboveTheLimitIsKept)
{
    COSSemaphore semaphore(3, 1);
    semaphore.Release();
    EXPECT_EQ(count_of(semaphore), 3u);
    for (int unit = 0; unit < 3; ++unit) {
        EXPECT_EQ(acquire(semaphore, kOSTimeoutNone), kOSStatusSuccess);
    }
    EXPECT_EQ(acquire(semaphore, kOSTimeoutNone), kOSStatusOperationTimedOut);
}

TEST(Semaphore, MutexIsFreeOnEveryReturn)
{
    const ConditionTap tap;
    COSSemaphore semaphore(1, 1);
    const auto is_free = [&semaphore] {
        return pthread_mutex_trylock(&mutex_of(semaphore)) == 0 &&
               pthread_mutex_unlock(&mutex_of(semaphore)) == 0;
    };
    acquire(semaphore, kOSTimeoutInfinite);
    EXPECT_TRUE(is_free());
    acquire(semaphore, kOSTimeoutNone);
    EXPECT_TRUE(is_free());
    acquire(semaphore, 5);
    EXPECT_TRUE(is_free());
    semaphore.Release();
    EXPECT_TRUE(is_free());
    semaphore.Release();
    EXPECT_TRUE(is_free());
}

// ---- timed waits

TEST(SemaphoreWait, EndsAfterItsTimeOut)
{
    COSSemaphore semaphore(0, 1);
    const auto start = steady_clock::now();
    EXPECT_EQ(acquire(semaphore, 1500), kOSStatusOperationTimedOut);
    EXPECT_GE(steady_clock::now() - start,
              milliseconds(1499)); // the deadline is cut to microseconds
}

// Waits until a thread of this process sleeps in the kernel.
bool falls_asleep(const std::atomic<pid_t>& thread)
{
    const auto bound = steady_clock::now() + std::chrono::seconds(10);
    while (steady_clock::now() < bound) {
        std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
        std::string stat;
        std::getline(file, stat); // "TID (NAME) STATE ..."
        const size_t name_end = stat.rfind(')');
        if (name_end != std::string::npos && stat.substr(name_end + 2, 1) == "S") {
            return true;
        }
        std::this_thread::yield();
    }
    return false;
}

TEST(SemaphoreWait, ReleaseWhileWaitingWakesItWithSuccess)
{
    for (const u32 timeout : {u32{600000}, kOSTimeoutInfinite}) {
        COSSemaphore semaphore(0, 1);
        std::atomic<pid_t> thread = 0;
        tOSStatus status = kNoStatus;
        std::thread waiter([&] {
            thread = gettid();
            status = acquire(semaphore, timeout);
        });
        EXPECT_TRUE(falls_asleep(thread));
        semaphore.Release();
        waiter.join();
        EXPECT_EQ(status, kOSStatusSuccess);
        EXPECT_EQ(count_of(semaphore), 0u);
    }
}

TEST(SemaphoreWait, DeadlineIsTheWallClockPlusTheTimeOut)
{
    const struct {
        timeval now;
        u32 timeout;
        timespec deadline;
    } cases[] = {
        {{1000, 0}, 1, {1000, 1000000}},
        {{1000, 0}, 1500, {1001, 500000000}},
        {{1000, 999998}, 2000, {1002, 999998000}},
        {{1000, 998999}, 1, {1000, 999999000}},
        {{1000, 999000}, 1, {1001, 0}}, // 1000000000 carries
        {{1000, 999999}, 1, {1001, 999000}},
        {{1000, 999999}, 999, {1001, 998999000}},
        {{1000, 0}, 0xFFFFFFFE, {4295967, 294000000}}, // the longest that ends
    };
    for (const auto& [now, timeout, deadline] : cases) {
        ConditionTap tap;
        tap.now = now;
        COSSemaphore semaphore(0, 1);
        EXPECT_EQ(acquire(semaphore, timeout), kOSStatusOperationTimedOut);
        ASSERT_EQ(tap.deadlines.size(), 1u);
        EXPECT_EQ(tap.deadlines[0].tv_sec, deadline.tv_sec) << timeout;
        EXPECT_EQ(tap.deadlines[0].tv_nsec, deadline.tv_nsec) << timeout;
    }
}

TEST(SemaphoreWait, KeepsItsDeadlineWhenInterruptedOrSpuriouslyWoken)
{
    ConditionTap tap;
    COSSemaphore semaphore(0, 1);
    tap.now = {50, 0};
    const auto give = [&tap](int result) {
        return [&tap, result] {
            ++tap.now.tv_sec;
            return result;
        };
    };
    tap.waits = {give(EINTR), give(0), give(EINTR), give(0), give(ETIMEDOUT)};
    EXPECT_EQ(acquire(semaphore, 2000), kOSStatusOperationTimedOut);
    ASSERT_EQ(tap.deadlines.size(), 5u);
    for (const timespec& deadline : tap.deadlines) {
        EXPECT_EQ(deadline.tv_sec, 52);
    }
}

TEST(SemaphoreWait, WithoutATimeOutItEndsOnlyWithAUnit)
{
    ConditionTap tap;
    COSSemaphore semaphore(0, 1);
    tap.waits = {[] { return 0; }, [] { return EINVAL; },
                 [&semaphore] {
                     count_of(semaphore) = 1;
                     return 0;
                 }};
    EXPECT_EQ(acquire(semaphore, kOSTimeoutInfinite), kOSStatusSuccess);
    EXPECT_TRUE(tap.waits.empty());
    EXPECT_TRUE(tap.deadlines.empty());
}

TEST(SemaphoreWait, InterruptedWaitContinuesEvenIfAUnitIsFree)
{
    ConditionTap tap;
    COSSemaphore semaphore(0, 1);
    tap.waits = {[&semaphore] {
                     count_of(semaphore) = 1;
                     return EINTR;
                 },
                 [] { return 0; }};
    EXPECT_EQ(acquire(semaphore, 5), kOSStatusSuccess);
    EXPECT_EQ(tap.deadlines.size(), 2u);
}

TEST(SemaphoreWait, UnitReleasedAtTheTimeOutIsTaken)
{
    for (const int result : {ETIMEDOUT, EINVAL, 0}) {
        ConditionTap tap;
        COSSemaphore semaphore(0, 1);
        tap.waits = {[&semaphore, result] {
            count_of(semaphore) = 1;
            return result;
        }};
        EXPECT_EQ(acquire(semaphore, 5), kOSStatusSuccess);
        EXPECT_EQ(count_of(semaphore), 0u);
        EXPECT_EQ(tap.deadlines.size(), 1u);
    }
}

TEST(SemaphoreWait, AnyOtherResultEndsItAsATimeOut)
{
    ConditionTap tap;
    COSSemaphore semaphore(0, 1);
    tap.waits = {[] { return EINVAL; }};
    EXPECT_EQ(acquire(semaphore, 5), kOSStatusOperationTimedOut);
    EXPECT_EQ(tap.deadlines.size(), 1u);
}

// ---- threads

TEST(SemaphoreThreads, WithOneUnitOnlyOneThreadEnters)
{
    COSSemaphore semaphore(1, 1);
    int guarded = 0; // not locked separately
    std::vector<std::thread> threads;
    for (int index = 0; index < 4; ++index) {
        threads.emplace_back([&semaphore, &guarded, index] {
            const u32 timeout = index % 2 == 0 ? kOSTimeoutInfinite : 60000;
            for (int round = 0; round < 500; ++round) {
                ASSERT_EQ(acquire(semaphore, timeout), kOSStatusSuccess);
                ++guarded;
                semaphore.Release();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(guarded, 2000);
    EXPECT_EQ(count_of(semaphore), 1u);
}

TEST(SemaphoreThreads, EachReleaseWakesOneWaiter)
{
    COSSemaphore semaphore(0, 10);
    std::atomic<int> gone = 0;
    std::vector<std::thread> threads;
    for (int index = 0; index < 4; ++index) {
        threads.emplace_back([&semaphore, &gone] {
            if (acquire(semaphore, kOSTimeoutInfinite) == kOSStatusSuccess) {
                ++gone;
            }
        });
    }
    for (int released = 1; released <= 4; ++released) {
        semaphore.Release();
        const auto bound = steady_clock::now() + std::chrono::seconds(10);
        while (gone < released && steady_clock::now() < bound) {
            std::this_thread::yield();
        }
        EXPECT_EQ(gone, released);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(acquire(semaphore, kOSTimeoutNone), kOSStatusOperationTimedOut);
}

// ---- the simple pair, which is unused

tOSStatus acquire_simply(COSSemaphore& semaphore, u32 timeout)
{
    tOSStatus status = kNoStatus;
    simple_acquire(semaphore, timeout, status);
    return status;
}

TEST(SimpleSemaphore, IsNotUsedForOneUnit)
{
    COSSemaphore semaphore(1, 1);
    acquire(semaphore, kOSTimeoutNone);
    EXPECT_EQ(pthread_mutex_trylock(&mutex_of(semaphore)), 0);
    pthread_mutex_unlock(&mutex_of(semaphore));
    EXPECT_EQ(count_of(semaphore), 0u);
}

TEST(SimpleSemaphore, TakesTheMutexWithEveryTimeOutAndNotTheCount)
{
    for (const u32 timeout : {kOSTimeoutNone, u32{1500}, kOSTimeoutInfinite}) {
        COSSemaphore semaphore(1, 1);
        EXPECT_EQ(acquire_simply(semaphore, timeout), kOSStatusSuccess);
        EXPECT_EQ(count_of(semaphore), 1u);
        simple_release(semaphore); // unlocks nothing
        EXPECT_EQ(acquire_simply(semaphore, kOSTimeoutNone), kOSStatusOperationTimedOut);
        pthread_mutex_unlock(&mutex_of(semaphore));
    }
}

TEST(SimpleSemaphore, TimeOutIsTakenAsATimeInThePast)
{
    COSSemaphore semaphore(1, 1);
    ASSERT_EQ(acquire_simply(semaphore, kOSTimeoutNone), kOSStatusSuccess);
    const auto start = steady_clock::now();
    EXPECT_EQ(acquire_simply(semaphore, 600000), kOSStatusSoftwareFault);
    EXPECT_LT(steady_clock::now() - start,
              std::chrono::seconds(300)); // half of the requested time
    pthread_mutex_unlock(&mutex_of(semaphore));
}

} // namespace
