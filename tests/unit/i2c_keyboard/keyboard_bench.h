/**
 * The bridge from a benchtop's keypad to the front-panel program. Each case needs a separate process: the
 * bridge's sender runs until the process exits.
 */
#ifndef ORVAN_TESTS_KEYBOARD_BENCH_H
#define ORVAN_TESTS_KEYBOARD_BENCH_H

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <wiringPi.h>

#include "board/current_board.h"
#include "orvan_sdk/i2cKeyboard/i2cKeyboard.h"
#include "panel_program.h"

namespace orvan_test {

/** The sender sleeps on the board's stopped clock; it sends one code after each pause. */
class KeyboardBridge : public testing::Test {
protected:
    static constexpr uint64_t kPauseUs = 200;

    void start()
    {
        wiringPiSetup();
        ASSERT_EQ(kb_setup(), 0);
        ASSERT_TRUE(board->clock().wait_for_sleepers(1));
        board->trace().clear();
    }
    /** Waits until the handler has run for every edge so far. */
    void settle() { ASSERT_TRUE(board->gpio().wait_for_handlers()); }
    void press(int row, int col)
    {
        ASSERT_TRUE(chip.press(row, col));
        settle();
    }
    void release(int row, int col)
    {
        ASSERT_TRUE(chip.release(row, col));
        settle();
    }
    void type(int row, int col)
    {
        press(row, col);
        release(row, col);
    }
    /** Lets the sender check the queue this many times. */
    void send(size_t times) { ASSERT_TRUE(board->clock().run(kPauseUs * times, 1)); }
    /** The codes received, once the queue is certainly empty. */
    std::vector<std::string> drain(size_t expected)
    {
        send(MAX_CMD_QUEUE_SIZE + 1);
        EXPECT_TRUE(panel.wait_for(expected));
        return panel.connections();
    }

    sim_board::InstalledBoard board{sim_board::kBenchtopWiring};
    sim_board::Tca8418& chip = *board->keypad();
    PanelProgram panel;
};

} // namespace orvan_test

#endif
