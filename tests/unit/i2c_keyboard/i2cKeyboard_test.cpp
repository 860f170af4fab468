// From a key to the connection of the front-panel program.

#include <algorithm>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <wiringPi.h>
#include <wiringPiI2C.h>

#include "board/current_board.h"
#include "board/expect_trace.h"
#include "board/faulty_i2c_device.h"
#include "keyboard_bench.h"
#include "support/loopback.h"
#include "support/output_capture.h"
#include <tca8418.h>

using namespace orvan_test;
using sim_board::expect_trace;

namespace {

std::string code_of(int row, int col)
{
    return {static_cast<char>(col * 16 + row)};
}

TEST_F(KeyboardBridge, Row3Column2PressedSendsByte0x23)
{
    start();
    press(3, 2);
    EXPECT_EQ(drain(1), std::vector<std::string>{"\x23"});
}

TEST_F(KeyboardBridge, EveryKeyReportsItsPressAndColumns8And9TheirReleaseToo)
{
    start();
    std::vector<std::string> expected;
    for (int row = 0; row < 6; ++row) {
        for (int col = 0; col < 10; ++col) {
            type(row, col);
            expected.insert(expected.end(), col >= 8 ? 2 : 1, code_of(row, col));
        }
        send(12);
    }
    EXPECT_EQ(drain(expected.size()), expected);
}

TEST_F(KeyboardBridge, ReleasesOfColumn9AreQueuedAndThoseOfColumn7AreNot)
{
    start();
    type(5, 7);
    type(5, 9);
    EXPECT_EQ(drain(3), (std::vector<std::string>{"\x75", "\x95", "\x95"}));
}

TEST_F(KeyboardBridge, KeysOutsideTheMatrixOfSixRowsSendNothing)
{
    start();
    for (int col = 0; col < 10; ++col) {
        type(6, col);
        type(7, col);
    }
    press(0, 1);
    EXPECT_EQ(drain(1), std::vector<std::string>{"\x10"});
}

TEST_F(KeyboardBridge, ControllerAndQueueLocksAreNeverHeldTogether)
{
    start();
    chip.press(3, 2);
    settle();
    send(2);
    EXPECT_TRUE(expect_trace(board->trace().take(), R"(
        lock 0
        i2c 0x34 [0x04] -> 0xa1
        i2c 0x34 [0x02] = 0x1f
        unlock 0
        lock 1
        unlock 1
        lock 1
        unlock 1
        delay 200
        delay 200
    )"));
}

TEST_F(KeyboardBridge, AnIgnoredEventTakesNoQueueLock)
{
    start();
    press(0, 0);
    board->trace().clear();
    release(0, 0);
    i2cIRQhandler(); // and once without an event
    EXPECT_TRUE(expect_trace(board->trace().take(), R"(
        lock 0
        i2c 0x34 [0x04] -> 0x01
        i2c 0x34 [0x02] = 0x1f
        unlock 0
        lock 0
        i2c 0x34 [0x04] -> 0x00
        i2c 0x34 [0x02] = 0x1f
        unlock 0
    )"));
}

TEST_F(KeyboardBridge, TheHundredAndFirstCodeIsDroppedAndTheFirstHundredAreSentInOrder)
{
    start();
    std::vector<std::string> expected;
    for (int number = 0; number < 100; ++number) {
        const int row = number % 6;
        const int col = number / 6 % 8;
        type(row, col);
        expected.push_back(code_of(row, col));
    }
    send_remote_code();
    type(0, 0);
    EXPECT_EQ(drain(100), expected);
    type(2, 2);
    expected.emplace_back("\x22");
    EXPECT_EQ(drain(101), expected) << "there is room again";
}

TEST_F(KeyboardBridge, OneCodeSentMakesRoomForOne)
{
    start();
    for (int number = 0; number < 100; ++number) {
        type(0, 1);
    }
    send(1);
    ASSERT_TRUE(panel.wait_for(1));
    type(1, 1);
    type(2, 2);
    const auto arrived = drain(101);
    EXPECT_EQ(arrived.size(), 101u);
    EXPECT_EQ(arrived.back(), "\x11");
}

TEST_F(KeyboardBridge, AThousandPressesArriveInTheirOrder)
{
    start();
    std::vector<std::string> expected;
    for (int number = 0; number < 1000; ++number) {
        const int row = number % 6;
        const int col = number / 7 % 8;
        type(row, col);
        expected.push_back(code_of(row, col));
        if (number % 50 == 49) {
            send(50);
        }
    }
    EXPECT_EQ(drain(1000), expected);
}

TEST_F(KeyboardBridge, EventsOfOneBurstEachGetTheirInterrupt)
{
    start();
    std::vector<std::string> expected;
    for (int col = 0; col < 8; ++col) {
        ASSERT_TRUE(chip.press(0, col)); // faster than the handler
        expected.push_back(code_of(0, col));
    }
    settle();
    EXPECT_EQ(chip.interrupt_level(), 1);
    EXPECT_EQ(drain(8), expected);
}

TEST_F(KeyboardBridge, EventsFromBeforeTheInterruptAreReadByADirectCall)
{
    const int fd = wiringPiI2CSetup(0x34);
    tca8418_configure(fd, 6, 10);
    ::close(fd);
    for (int col = 0; col < 3; ++col) {
        ASSERT_TRUE(chip.press(1, col));
    }
    start();
    settle();
    EXPECT_EQ(board->gpio().level(15), 0) << "no edge will follow";
    i2cIRQhandler();
    settle();
    // The locks are never held together, so the interrupt's thread may queue its code before this one's.
    EXPECT_THAT(drain(3), testing::UnorderedElementsAre("\x01", "\x11", "\x21"));
}

TEST_F(KeyboardBridge, TheRemoteCodeIsQueuedLikeAKey)
{
    start();
    press(0, 1);
    send_remote_code();
    press(0, 2);
    EXPECT_EQ(drain(3), (std::vector<std::string>{"\x10", "\xff", "\x20"}));
}

TEST_F(KeyboardBridge, EachCodeHasItsConnectionWithLimitsOf30Milliseconds)
{
    start();
    press(0, 1);
    drain(1);
    EXPECT_EQ(panel_calls(),
              (std::vector<std::string>{"receive limit 30000", "send limit 30000", "connect 127.0.0.1"}));
}

TEST_F(KeyboardBridge, WithoutAListenerTheQueueEmptiesAndTheCodesAreLost)
{
    start();
    const int port = 1; // which refuses connections
    redirect_panel_port(port);
    const size_t descriptors = open_descriptors();
    for (int number = 0; number < 20; ++number) {
        type(0, 1);
    }
    send(21);
    EXPECT_EQ(panel_attempts(), 20u);
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_TRUE(panel.connections().empty());
}

TEST_F(KeyboardBridge, ALateListenerGetsKeysFromThenOn)
{
    start();
    redirect_panel_port(1);
    type(0, 1);
    send(2);
    EXPECT_EQ(panel_attempts(), 1u);
    std::optional<PanelProgram> late(std::in_place);
    type(0, 2);
    send(2);
    ASSERT_TRUE(late->wait_for(1));
    EXPECT_EQ(late->connections(), std::vector<std::string>{"\x20"});
    EXPECT_TRUE(panel.connections().empty());
}

TEST_F(KeyboardBridge, ATemporaryBusFailureLosesNoKey)
{
    start();
    const auto device = sim_board::insert_fault(board->i2c(), 0x34);
    device->not_acknowledging(true);
    ASSERT_TRUE(chip.press(3, 2));
    for (int tries = 0; tries < 3; ++tries) {
        ASSERT_TRUE(board->clock().wait_for_sleepers(2)) << "the sender, and the handler between two tries";
        board->clock().advance(5000);
    }
    ASSERT_TRUE(board->clock().wait_for_sleepers(2));
    device->not_acknowledging(false);
    board->clock().advance(5000);
    settle();
    release(3, 2);
    type(4, 2);
    EXPECT_EQ(drain(2), (std::vector<std::string>{"\x23", "\x24"}));
}

TEST_F(KeyboardBridge, ItPrintsNothing)
{
    OutputCapture out(STDOUT_FILENO);
    OutputCapture errors(STDERR_FILENO);
    start();
    redirect_panel_port(1);
    type(0, 1);
    send(2);
    EXPECT_EQ(out.text(), "");
    EXPECT_EQ(errors.text(), "");
}

// In real time, for ThreadSanitizer: interrupts, direct calls, the service's entry point and the sender.
TEST(KeyboardBridgeThreads, CodesOfManyThreadsAllArrive)
{
    sim_board::InstalledBoard board(sim_board::kBenchtopWiring, sim_board::Clock::Mode::kRealTime);
    PanelProgram panel;
    wiringPiSetup();
    ASSERT_EQ(kb_setup(), 0);
    constexpr int kRounds = 5;
    constexpr size_t kRemotes = 30;
    constexpr size_t kKeys = 30;
    for (int round = 1; round <= kRounds; ++round) {
        {
            std::vector<std::jthread> threads;
            for (int n = 0; n < 3; ++n) {
                threads.emplace_back([] {
                    for (size_t i = 0; i < kRemotes / 3; ++i) {
                        send_remote_code();
                    }
                });
            }
            threads.emplace_back([] {
                for (int i = 0; i < 20; ++i) {
                    i2cIRQhandler();
                }
            });
            for (size_t key = 0; key < kKeys; ++key) {
                board->keypad()->press(0, static_cast<int>(key % 8));
                board->keypad()->release(0, static_cast<int>(key % 8));
                ASSERT_TRUE(board->gpio().wait_for_handlers());
            }
        }
        // The queue never holds more than the 60 codes of a round.
        ASSERT_TRUE(panel.wait_for(static_cast<size_t>(round) * (kRemotes + kKeys)));
    }
    const auto arrived = panel.connections();
    EXPECT_EQ(arrived.size(), kRounds * (kRemotes + kKeys));
    EXPECT_EQ(static_cast<size_t>(std::count(arrived.begin(), arrived.end(), "\xff")), kRounds * kRemotes);
}

} // namespace
