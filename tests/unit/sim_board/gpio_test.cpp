#include <atomic>
#include <cerrno>
#include <semaphore>
#include <thread>

#include <gtest/gtest.h>
#include <wiringPi.h>

#include "board/expect_trace.h"
#include "board/gpio.h"

namespace sim_board {
namespace {

std::atomic<int> g_calls{0};
std::atomic<int> g_other_calls{0};
std::thread::id g_handler_thread;

void count_call()
{
    g_handler_thread = std::this_thread::get_id();
    ++g_calls;
}
void count_other_call()
{
    ++g_other_calls;
}

struct GpioTest : testing::Test {
    Trace trace;
    Gpio gpio{trace};

    void SetUp() override { g_calls = g_other_calls = 0; }
    void TearDown() override { gpio.stop(); }
};

TEST_F(GpioTest, PinsAreInputsThatShowTheLevelFromOutside)
{
    gpio.setup();
    EXPECT_EQ(gpio.read(22), 0);
    gpio.drive(22, 1);
    EXPECT_EQ(gpio.read(22), 1);
}

TEST_F(GpioTest, AnInputKeepsWhatIsWrittenAndDrivesItWhenItBecomesAnOutput)
{
    gpio.setup();
    gpio.write(27, 1);
    EXPECT_EQ(gpio.level(27), 0);
    gpio.pin_mode(27, OUTPUT);
    EXPECT_EQ(gpio.level(27), 1);
    gpio.pin_mode(27, INPUT);
    EXPECT_EQ(gpio.level(27), 0);
}

TEST_F(GpioTest, AnyValueOtherThanZeroIsHigh)
{
    gpio.setup();
    gpio.pin_mode(1, OUTPUT);
    gpio.write(1, 7);
    EXPECT_EQ(gpio.read(1), 1);
}

TEST_F(GpioTest, AccessesBeforeSetupHaveNoEffectAndShowInTheTrace)
{
    gpio.pin_mode(11, OUTPUT);
    gpio.write(11, 1);
    EXPECT_EQ(gpio.level(11), 0);
    EXPECT_EQ(gpio.isr(11, INT_EDGE_RISING, count_call), -1);
    EXPECT_TRUE(expect_trace(trace.lines(), R"(
        pin 11 output -> before setup
        pin 11 = 1 -> before setup
        pin 11 isr rising -> EINVAL)"));
}

TEST_F(GpioTest, EveryAccessIsRecordedInOrder)
{
    gpio.setup();
    gpio.pin_mode(26, OUTPUT);
    gpio.pin_mode(2, INPUT);
    gpio.write(26, 1);
    gpio.read(2);
    gpio.isr(2, INT_EDGE_FALLING, count_call);
    gpio.write(99, 1);
    EXPECT_TRUE(expect_trace(trace.lines(), R"(
        pins setup
        pin 26 output
        pin 2 input
        pin 26 = 1
        pin 2 -> 0
        pin 2 isr falling
        pin 99 = 1 -> no such pin)"));
}

TEST_F(GpioTest, TheHandlerIsCalledOnItsOwnThreadForEachEdgeOfItsKind)
{
    gpio.setup();
    ASSERT_EQ(gpio.isr(2, INT_EDGE_RISING, count_call), 0);
    for (int i = 0; i < 3; ++i) {
        gpio.drive(2, 1);
        gpio.drive(2, 1); // no edge
        gpio.drive(2, 0);
    }
    ASSERT_TRUE(gpio.wait_for_handlers());
    EXPECT_EQ(g_calls, 3);
    EXPECT_NE(g_handler_thread, std::this_thread::get_id());
}

TEST_F(GpioTest, FallingEdgesCallTheFallingHandler)
{
    gpio.drive(15, 1);
    gpio.setup();
    ASSERT_EQ(gpio.isr(15, INT_EDGE_FALLING, count_call), 0);
    gpio.drive(15, 0);
    gpio.drive(15, 1);
    ASSERT_TRUE(gpio.wait_for_handlers());
    EXPECT_EQ(g_calls, 1);
}

TEST_F(GpioTest, ASecondHandlerReplacesTheFirst)
{
    gpio.setup();
    gpio.isr(2, INT_EDGE_FALLING, count_call);
    gpio.isr(2, INT_EDGE_RISING, count_other_call);
    gpio.drive(2, 1);
    gpio.drive(2, 0);
    ASSERT_TRUE(gpio.wait_for_handlers());
    EXPECT_EQ(g_calls, 0);
    EXPECT_EQ(g_other_calls, 1);
}

TEST_F(GpioTest, AnInvalidIsrReturnsMinusOne)
{
    gpio.setup();
    gpio.refuse_isr(true);
    EXPECT_EQ(gpio.isr(2, INT_EDGE_RISING, count_call), -1);
    EXPECT_EQ(errno, EIO);
    gpio.refuse_isr(false);
    EXPECT_EQ(gpio.isr(2, 9, count_call), -1);
    EXPECT_EQ(gpio.isr(-1, INT_EDGE_RISING, count_call), -1);
    EXPECT_EQ(gpio.isr(Gpio::kPins, INT_EDGE_RISING, count_call), -1);
    EXPECT_EQ(gpio.isr(2, INT_EDGE_RISING, count_call), 0);
}

std::binary_semaphore g_handler_entered{0};
std::binary_semaphore g_handler_may_end{0};

TEST_F(GpioTest, WaitForHandlersWaitsForARunningHandlerAndHasABound)
{
    gpio.setup();
    gpio.isr(2, INT_EDGE_RISING, [] {
        g_handler_entered.release();
        g_handler_may_end.acquire();
    });
    gpio.drive(2, 1);
    g_handler_entered.acquire();
    EXPECT_FALSE(gpio.wait_for_handlers(std::chrono::milliseconds(1)));
    g_handler_may_end.release();
    EXPECT_TRUE(gpio.wait_for_handlers());
}

TEST_F(GpioTest, AfterStopEdgesCallNothing)
{
    gpio.setup();
    gpio.isr(2, INT_EDGE_RISING, count_call);
    gpio.stop();
    gpio.drive(2, 1);
    EXPECT_TRUE(gpio.wait_for_handlers());
    EXPECT_EQ(g_calls, 0);
    EXPECT_EQ(gpio.isr(2, INT_EDGE_RISING, count_call), -1);
}

TEST_F(GpioTest, AWatcherSeesEveryNewLevelOfTheLine)
{
    std::vector<int> levels;
    gpio.drive(26, 1);
    gpio.watch(26, [&](int level) { levels.push_back(level); });
    gpio.setup();
    gpio.pin_mode(26, OUTPUT);
    gpio.write(26, 0);
    gpio.write(26, 1);
    EXPECT_EQ(levels, (std::vector<int>{0, 1}));
}

} // namespace
} // namespace sim_board
