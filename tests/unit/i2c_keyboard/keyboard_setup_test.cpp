// The set-up of the keyboard bridge, and faults during it.

#include <csignal>
#include <string>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>
#include <wiringPi.h>

#include "board/current_board.h"
#include "board/expect_trace.h"
#include "keyboard_bench.h"
#include "refuses_one.h"

using namespace orvan_test;
using sim_board::expect_trace;

namespace {

TEST_F(KeyboardBridge, TheSetUpConfiguresAnInputAndFallingEdges)
{
    wiringPiSetup();
    board->trace().clear();
    EXPECT_EQ(kb_setup(), 0);
    EXPECT_TRUE(expect_trace(board->trace().lines_with({"pin ", "i2c "}), R"(
        pin 15 input
        i2c 0x34 open
        i2c 0x34 [0x1d] = 0x3f
        i2c 0x34 [0x1e] = 0xff
        i2c 0x34 [0x1f] = 0x03
        i2c 0x34 [0x01] = 0x11
        pin 15 isr falling
    )"));
}

TEST_F(KeyboardBridge, WithoutAKeypadTheSetUpSucceedsAndADirectCallDoesNothing)
{
    board->i2c().attach(0x34, nullptr);
    wiringPiSetup();
    board->trace().clear();
    EXPECT_EQ(kb_setup(), 0);
    i2cIRQhandler();
    EXPECT_TRUE(expect_trace(board->trace().lines_with({"pin ", "i2c ", "lock ", "unlock "}), R"(
        pin 15 input
        i2c 0x34 open -> ENXIO
        lock 0
        unlock 0
    )"));
    ASSERT_TRUE(board->clock().wait_for_sleepers(1));
    send_remote_code();
    EXPECT_EQ(drain(1), std::vector<std::string>{"\xff"}) << "the sender still runs";
}

TEST_F(KeyboardBridge, DescriptorZeroMeansNoKeypad)
{
    const int standard_input = ::dup(STDIN_FILENO);
    wiringPiSetup();
    board->trace().clear();
    board->i2c().open_next_as(STDIN_FILENO);
    EXPECT_EQ(kb_setup(), 0);
    EXPECT_TRUE(expect_trace(board->trace().lines_with({"pin ", "i2c "}), R"(
        pin 15 input
        i2c 0x34 open
    )"));
    ASSERT_TRUE(board->clock().wait_for_sleepers(1));
    if (standard_input >= 0) {
        ::dup2(standard_input, STDIN_FILENO);
        ::close(standard_input);
    }
}

TEST_F(KeyboardBridge, AKeypadThatFailsItsSetUpGetsNoInterrupt)
{
    refuse_one(board->i2c(), 0x34, 3);
    wiringPiSetup();
    board->trace().clear();
    EXPECT_EQ(kb_setup(), 0);
    EXPECT_TRUE(board->trace().lines_with({"pin 15 isr"}).empty());
    ASSERT_TRUE(board->clock().wait_for_sleepers(1));
    EXPECT_TRUE(chip.press(0, 1)) << "the matrix is set up, its interrupt is not";
    settle();
    i2cIRQhandler();
    EXPECT_EQ(drain(1), std::vector<std::string>{"\x10"}) << "the call by hand has its descriptor";
}

TEST(KeyboardBridgeEnd, AnInterruptThatCannotBeSetUpEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // the child starts a thread
    const auto set_up = [] {
        sim_board::InstalledBoard board(sim_board::kBenchtopWiring);
        wiringPiSetup();
        board->gpio().refuse_isr(true);
        kb_setup();
    };
    EXPECT_EXIT(set_up(), testing::KilledBySignal(SIGABRT), "^Unable to setup ISR: Input/output error\n");
}

} // namespace
