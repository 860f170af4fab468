#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <pthread.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "bit_bench.h"
#include "board/current_board.h"
#include "own_process.h"
#include "support/log_capture.h"

using namespace orvan_test;
using namespace std::chrono_literals;
using sim_board::Clock;

namespace {

constexpr uint64_t kSecond = 1000000;

/** The periodic thread on a clock that is stopped until it is advanced. */
class PeriodicTest : public ::testing::Test {
protected:
    void SetUp() override { run_in_own_process(); } // there is one thread for a process
    ~PeriodicTest() override
    {
        if (manager == nullptr) {
            return;
        }
        // A thread stopped before its wait ends takes no further step.
        auto stopped = begin_to_stop();
        clock().release();
        stopped.wait();
    }

    Clock& clock() { return board->clock(); }

    void start(int period) { manager = BITManager::getInstance(period); }

    /** Stops the thread from another one; returns when that one waits for it, or is done without waiting. */
    std::future<void> begin_to_stop()
    {
        auto stopped = std::async(std::launch::async, [this] { stop_periodic_thread(*manager); });
        while (!is_stopping(*manager) && stopped.wait_for(0s) != std::future_status::ready) {
            std::this_thread::yield();
        }
        return stopped;
    }

    /** A continuous test that counts its runs. */
    void register_counting(const char* name, std::atomic<int>& count)
    {
        const auto run = [&count](void*) {
            ++count;
            return 0;
        };
        EXPECT_GE(manager->registerTest(CBIT, {name, run, nullptr, true}), 0);
    }

    /** The thread has taken its step and waits for the next one. */
    bool step_done() { return clock().wait_for_sleepers(1); }

    std::vector<std::string> delays() const { return board->trace().lines(); }

    LogCapture logs;
    sim_board::InstalledBoard board{sim_board::kPortableWiring};
    BITManager* manager = nullptr;
    std::atomic<int> first = 0;
    std::atomic<int> second = 0;
};

TEST_F(PeriodicTest, RunsOneStepPerPeriod)
{
    start(30);
    ASSERT_TRUE(step_done()); // the table was empty
    register_counting("a", first);
    clock().advance(30 * kSecond - 1);
    EXPECT_EQ(first, 0);
    clock().advance(1);
    ASSERT_TRUE(step_done());
    EXPECT_EQ(first, 1);
    ASSERT_TRUE(clock().run(300 * kSecond, 1));
    EXPECT_EQ(first, 11);
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(PeriodicTest, RunsTheFirstStepBeforeTheFirstWait)
{
    start(0); // no thread: the loop runs on this one, with a row that is there from its first step on
    size_t waits_before = 99;
    const auto run = [&](void*) {
        waits_before = delays().size();
        set_stopping(*manager);
        return 0;
    };
    manager->registerTest(CBIT, {"a", run, nullptr, true});
    run_periodic_thread(*manager);
    EXPECT_EQ(waits_before, 0u);
    EXPECT_EQ(delays(), std::vector<std::string>{"delay 0"});
}

TEST_F(PeriodicTest, OnlyOneTestRunsEachPeriod)
{
    start(5);
    ASSERT_TRUE(step_done());
    register_counting("a", first);
    register_counting("b", second);
    ASSERT_TRUE(clock().run(5 * kSecond, 1));
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 0);
    ASSERT_TRUE(clock().run(15 * kSecond, 1));
    EXPECT_EQ(first, 2);
    EXPECT_EQ(second, 2);
}

TEST_F(PeriodicTest, PeriodIsInSecondsEvenIfMicrosecondsOverflowAnInt)
{
    start(100000);
    ASSERT_TRUE(step_done());
    EXPECT_EQ(delays(), std::vector<std::string>{"delay 100000000000"});
}

TEST_F(PeriodicTest, LaterPeriodChangesNothing)
{
    start(30);
    ASSERT_TRUE(step_done());
    EXPECT_EQ(BITManager::getInstance(1), manager);
    EXPECT_EQ(BITManager::getInstance(0), manager);
    ASSERT_TRUE(clock().run(30 * kSecond, 1));
    EXPECT_EQ(delays(), (std::vector<std::string>(2, "delay 30000000")));
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(PeriodicTest, FunctionRunsOnThePeriodicThreadAndOutsideTheLock)
{
    std::promise<std::thread::id> ran_on;
    start(30);
    ASSERT_TRUE(step_done());
    const auto run = [&](void* record) {
        const char* const name = manager->getTestName(static_cast<TestRecord_t*>(record));
        manager->setTestResult(CBIT, name, BIT_PASS, 2);
        ran_on.set_value(std::this_thread::get_id());
        return 0;
    };
    manager->registerTest(CBIT, {"a", run, nullptr, true});
    clock().advance(30 * kSecond);
    auto thread = ran_on.get_future();
    ASSERT_EQ(thread.wait_for(10s), std::future_status::ready);
    EXPECT_NE(thread.get(), std::this_thread::get_id());
    ASSERT_TRUE(step_done());
    bitReport_t report = {};
    ASSERT_TRUE(manager->getTestResult(CBIT, 0, report));
    EXPECT_EQ(report.result, BIT_PASS);
    EXPECT_EQ(report.errorCode, 2);
}

TEST_F(PeriodicTest, StopWaitsForThePeriodToEnd)
{
    start(30);
    ASSERT_TRUE(step_done());
    register_counting("a", first);
    EXPECT_TRUE(has_thread(*manager));
    auto stopped = begin_to_stop();
    clock().advance(30 * kSecond - 1);
    EXPECT_EQ(stopped.wait_for(0s), std::future_status::timeout);
    EXPECT_EQ(clock().sleepers(), 1u);
    clock().advance(1);
    ASSERT_EQ(stopped.wait_for(10s), std::future_status::ready);
    EXPECT_EQ(clock().sleepers(), 0u);
    EXPECT_EQ(first, 0); // no step after the end
    EXPECT_FALSE(has_thread(*manager));
    stop_periodic_thread(*manager); // there is nothing left to end
}

TEST_F(PeriodicTest, PeriodBelowOneStartsNoThread)
{
    start(0);
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_INFO, "CBIT thread not spawned"}}));
    EXPECT_EQ(BITManager::getInstance(30), manager);
    EXPECT_FALSE(clock().wait_for_sleepers(1, 50ms));
    EXPECT_TRUE(delays().empty());
    EXPECT_EQ(logs.lines().size(), 1u);
}

TEST_F(PeriodicTest, NegativePeriodStartsNoThread)
{
    start(-30);
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_INFO, "CBIT thread not spawned"}}));
    EXPECT_FALSE(clock().wait_for_sleepers(1, 50ms));
}

TEST_F(PeriodicTest, FailedThreadStartIsLoggedAndTheTableStaysUsable)
{
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_getattr_default_np(&attributes), 0);
    size_t size = 0;
    pthread_attr_getstacksize(&attributes, &size);
    pthread_attr_setstacksize(&attributes, SIZE_MAX / 16 * 15); // more than there are addresses
    ASSERT_EQ(pthread_setattr_default_np(&attributes), 0);
    start(30);
    pthread_attr_setstacksize(&attributes, size);
    pthread_setattr_default_np(&attributes);
    pthread_attr_destroy(&attributes);

    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_ERR, "Failed to create thread"}}));
    register_counting("a", first);
    EXPECT_TRUE(manager->setTestResult(CBIT, "a", BIT_FAIL, 1));
    stop_periodic_thread(*manager); // joins nothing
}

TEST_F(PeriodicTest, ExceptionOfATestEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto live = [] {
        sim_board::set_current_board(
            std::make_shared<sim_board::Board>(sim_board::kPortableWiring, Clock::Mode::kRealTime));
        const auto fail = [](void*) -> int { throw std::runtime_error("broken"); };
        BITManager::getInstance(1)->registerTest(CBIT, {"a", fail, nullptr, true});
        std::this_thread::sleep_for(10s); // the next step is due in one
        ::_exit(25);
    };
    EXPECT_EXIT(live(), ::testing::KilledBySignal(SIGABRT), "");
}

TEST_F(PeriodicTest, ProcessExitWaitsForTheThread)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto live_and_end = [] {
        // Runs after the manager's end, as it was registered first.
        std::atexit([] { ::_exit(sim_board::current_board()->clock().sleepers() == 0 ? 23 : 24); });
        sim_board::set_current_board(
            std::make_shared<sim_board::Board>(sim_board::kPortableWiring, Clock::Mode::kRealTime));
        BITManager::getInstance(1);
        if (!sim_board::current_board()->clock().wait_for_sleepers(1)) {
            ::_exit(25);
        }
        std::exit(0);
    };
    EXPECT_EXIT(live_and_end(), ::testing::ExitedWithCode(23), "");
}

} // namespace
