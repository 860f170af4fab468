#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "board/clock.h"

namespace sim_board {
namespace {

using namespace std::chrono_literals;

TEST(RealTimeClock, RunsByItself)
{
    Clock clock(Clock::Mode::kRealTime);
    const auto before = clock.now_us();
    clock.sleep_us(2000);
    EXPECT_GE(clock.now_us() - before, 2000u);
    EXPECT_EQ(clock.sleepers(), 0u);
}

TEST(RealTimeClock, ReleaseEndsALongWait)
{
    Clock clock(Clock::Mode::kRealTime);
    std::jthread sleeper([&] { clock.sleep_us(UINT64_MAX); });
    ASSERT_TRUE(clock.wait_for_sleepers(1));
    clock.release();
}

TEST(RealTimeClock, APollTakesTenRealMillisecondsWhateverTheRate)
{
    Clock clock(Clock::Mode::kRealTime, 10000);
    const auto before = std::chrono::steady_clock::now();
    clock.poll_us(200);
    EXPECT_GE(std::chrono::steady_clock::now() - before, 10ms);
}

TEST(RealTimeClock, ReleaseEndsAPoll)
{
    Clock clock(Clock::Mode::kRealTime);
    std::jthread sleeper([&] { clock.poll_us(UINT64_MAX); });
    ASSERT_TRUE(clock.wait_for_sleepers(1));
    clock.release();
}

TEST(RealTimeClock, APeriodBegunDuringStartUpIsShortenedOnceItEnds)
{
    constexpr uint64_t kWaitUs = 60'000'000; // 6 ms at that rate
    Clock clock(Clock::Mode::kRealTime, 10000);
    clock.start_up_begins();
    std::atomic<bool> done = false;
    const auto begin = std::chrono::steady_clock::now();
    std::jthread sleeper([&] {
        clock.sleep_us(kWaitUs);
        done = true;
    });
    ASSERT_TRUE(clock.wait_for_sleepers(1));
    for (int second = 0; second < 200; ++second) {
        clock.sleep_us(Clock::kPeriodUs - 1); // shortened: a millisecond each
    }
    EXPECT_FALSE(done);
    clock.start_up_ends();
    sleeper.join();
    clock.sleep_us(kWaitUs);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 30s);
}

TEST(RealTimeClock, ReleaseEndsAPeriodDuringStartUp)
{
    Clock clock(Clock::Mode::kRealTime, 2);
    clock.start_up_begins();
    std::jthread sleeper([&] { clock.sleep_us(UINT64_MAX); });
    ASSERT_TRUE(clock.wait_for_sleepers(1));
    clock.release();
}

TEST(ManualClock, APollIsAWaitLikeAnyOther)
{
    Clock clock(Clock::Mode::kManual);
    const SelfAdvancing self(clock);
    EXPECT_EQ(clock.poll_us(200), 200u);
}

TEST(ManualClock, IsStoppedUntilAdvanced)
{
    Clock clock(Clock::Mode::kManual);
    EXPECT_EQ(clock.now_us(), 0u);
    clock.advance(1500);
    EXPECT_EQ(clock.now_us(), 1500u);
}

TEST(ManualClock, AWaitOfZeroDoesNotSleep)
{
    Clock clock(Clock::Mode::kManual);
    clock.sleep_us(0);
    EXPECT_EQ(clock.now_us(), 0u);
}

TEST(ManualClock, AThreadWakesExactlyWhenItsWaitEnds)
{
    Clock clock(Clock::Mode::kManual);
    std::atomic<bool> woken = false;
    std::jthread sleeper([&] {
        clock.sleep_us(1000);
        woken = true;
    });
    ASSERT_TRUE(clock.wait_for_sleepers(1));
    clock.advance(999);
    EXPECT_EQ(clock.sleepers(), 1u);
    EXPECT_FALSE(woken);
    clock.advance(1);
    EXPECT_EQ(clock.sleepers(), 0u);
    sleeper.join();
    EXPECT_TRUE(woken);
}

TEST(ManualClock, OneAdvanceWakesEachThreadAtItsOwnTime)
{
    Clock clock(Clock::Mode::kManual);
    const std::vector<uint64_t> waits{3000, 1000, 2000, 1000};
    std::vector<uint64_t> woken_at(waits.size());
    std::vector<std::jthread> sleepers;
    for (size_t i = 0; i < waits.size(); ++i) {
        sleepers.emplace_back([&, i] { woken_at[i] = clock.sleep_us(waits[i]); });
        ASSERT_TRUE(clock.wait_for_sleepers(i + 1));
    }
    clock.advance(10000);
    EXPECT_EQ(clock.now_us(), 10000u);
    sleepers.clear();
    EXPECT_EQ(woken_at, waits);
}

TEST(ManualClock, AdvanceLeavesThreadsWithALaterEndAsleep)
{
    Clock clock(Clock::Mode::kManual);
    std::vector<std::jthread> sleepers;
    for (uint64_t i = 1; i <= 5; ++i) {
        sleepers.emplace_back([&clock, i] { clock.sleep_us(i * 100); });
    }
    ASSERT_TRUE(clock.wait_for_sleepers(5));
    clock.advance(300);
    EXPECT_EQ(clock.sleepers(), 2u);
    clock.advance(200);
    EXPECT_EQ(clock.sleepers(), 0u);
}

TEST(ManualClock, RunLetsALoopDoAllCyclesOfASpan)
{
    Clock clock(Clock::Mode::kManual);
    std::atomic<bool> go_on = true;
    std::vector<uint64_t> cycles;
    std::jthread loop([&] {
        while (go_on) {
            cycles.push_back(clock.now_us());
            clock.sleep_us(5'000'000);
        }
    });
    ASSERT_TRUE(clock.run(120'000'000, 1));
    EXPECT_EQ(clock.now_us(), 120'000'000u);
    go_on = false;
    clock.advance(5'000'000);
    loop.join();
    ASSERT_EQ(cycles.size(), 25u);
    for (size_t i = 0; i < cycles.size(); ++i) {
        EXPECT_EQ(cycles[i], i * 5'000'000);
    }
}

TEST(ManualClock, RunInterleavesLoopsOfDifferentPeriodsByTime)
{
    Clock clock(Clock::Mode::kManual);
    std::mutex mutex;
    std::vector<std::pair<uint64_t, int>> order;
    std::vector<std::jthread> loops;
    for (const int period : {3, 5}) {
        loops.emplace_back([&, period](const std::stop_token& stop) {
            while (!stop.stop_requested()) {
                clock.sleep_us(static_cast<uint64_t>(period));
                std::lock_guard lock(mutex);
                order.emplace_back(clock.now_us(), period);
            }
        });
    }
    ASSERT_TRUE(clock.run(14, 2));
    {
        std::lock_guard lock(mutex);
        EXPECT_EQ(order,
                  (std::vector<std::pair<uint64_t, int>>{{3, 3}, {5, 5}, {6, 3}, {9, 3}, {10, 5}, {12, 3}}));
    }
    for (auto& loop : loops) {
        loop.request_stop();
    }
    clock.release();
}

TEST(ManualClock, RunReturnsWhenTheThreadsDoNotFallAsleep)
{
    Clock clock(Clock::Mode::kManual);
    EXPECT_FALSE(clock.run(1000, 1, 1ms));
    EXPECT_EQ(clock.now_us(), 0u);
    EXPECT_FALSE(clock.wait_for_sleepers(1, 1ms));
    EXPECT_TRUE(clock.wait_for_sleepers(0, 1ms));
}

TEST(ManualClock, ReleaseEndsAllWaitsAndLaterOnesOnlyCount)
{
    Clock clock(Clock::Mode::kManual);
    std::jthread one([&] { clock.sleep_us(1000); });
    std::jthread two([&] { clock.sleep_us(2000); });
    ASSERT_TRUE(clock.wait_for_sleepers(2));
    clock.release();
    one.join();
    two.join();
    const auto before = clock.now_us();
    clock.sleep_us(500);
    EXPECT_EQ(clock.now_us(), before + 500);
}

TEST(SelfAdvancing, TheWaitsOfItsThreadAdvanceTheClockAndWakeOthers)
{
    Clock clock(Clock::Mode::kManual);
    std::jthread other([&] { clock.sleep_us(40); });
    ASSERT_TRUE(clock.wait_for_sleepers(1));
    {
        SelfAdvancing self(clock);
        clock.sleep_us(30);
        EXPECT_EQ(clock.sleepers(), 1u);
        clock.sleep_us(30);
        EXPECT_EQ(clock.sleepers(), 0u);
        EXPECT_EQ(clock.now_us(), 60u);
    }
    std::jthread after([&] { clock.sleep_us(10); });
    EXPECT_TRUE(clock.wait_for_sleepers(1));
    clock.release();
}

} // namespace
} // namespace sim_board
