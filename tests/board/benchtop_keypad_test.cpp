// The benchtop's keyboard bridge. Each case needs a separate process: the bridge's sender runs until its
// end.

#include <algorithm>

#include "benchtop_start_bench.h"

using namespace board_test;

namespace {

TEST_F(BenchtopStart, PendingKeypadEventIsReadOnceWithoutAnInterrupt)
{
    store(settled_settings());
    start_and_settle();
    ASSERT_TRUE(board->keypad()->press(3, 2)); // before the interrupt
    board->trace().clear();
    device->RunKbdServer();
    ASSERT_TRUE(board->clock().wait_for_sleepers(threads + 1));
    const auto lines = board->trace().lines_with({"pin 15", "i2c 0x34", "lock 0", "unlock 0"});
    const auto armed = std::find(lines.begin(), lines.end(), "pin 15 isr falling");
    ASSERT_NE(armed, lines.end());
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "lock 0"), 1) << "one call, after the set-up";
    EXPECT_NE(std::find(armed, lines.end(), "lock 0"), lines.end());
    EXPECT_EQ(logs.count(LOG_ERR, "RunKbdServer: unable to setup I2C ISR"), 0u);
}

TEST_F(BenchtopStart, MissingKeypadIsNoFailure)
{
    store(settled_settings());
    start_and_settle();
    board->i2c().attach(0x34, nullptr);
    board->trace().clear();
    device->RunKbdServer();
    ASSERT_TRUE(board->clock().wait_for_sleepers(threads + 1));
    EXPECT_EQ(logs.count(LOG_ERR, "RunKbdServer: unable to setup I2C ISR"), 0u);
    EXPECT_TRUE(sim_board::expect_trace(
        board->trace().lines_with({"pin 15", "i2c 0x34", "i2c ?", "lock 0", "unlock 0"}), R"(
        pin 15 input
        i2c 0x34 open -> ENXIO
        lock 0
        unlock 0
    )"));
}

} // namespace
