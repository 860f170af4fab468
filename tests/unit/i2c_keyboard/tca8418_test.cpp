// The driver on the simulated controller, and on one that returns arbitrary bytes.

#include <algorithm>
#include <memory>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>
#include <wiringPi.h>
#include <wiringPiI2C.h>

#include "board/current_board.h"
#include "board/expect_trace.h"
#include "refuses_one.h"
#include <tca8418.h>

using namespace orvan_test;
using sim_board::expect_trace;
using sim_board::Tca8418;

namespace {

constexpr int kUntouched = 77;

struct Event {
    int result;
    int row = kUntouched;
    int col = kUntouched;
    int state = kUntouched;
    bool operator==(const Event&) const = default;
};
void PrintTo(const Event& event, std::ostream* out)
{
    *out << event.result << ": " << event.row << ", " << event.col << ", " << event.state;
}
constexpr Event kNothing{-1};

/** Returns its bytes in turn, whatever register is read, and 0 when there are no more. */
struct ByteArray : sim_board::I2cDevice {
    explicit ByteArray(std::vector<uint8_t> values) : bytes(std::move(values)) {}
    bool write(std::span<const uint8_t>) override { return true; }
    bool read(std::span<uint8_t> received) override
    {
        for (uint8_t& byte : received) {
            byte = next < bytes.size() ? bytes[next++] : 0;
        }
        return true;
    }
    std::vector<uint8_t> bytes;
    size_t next = 0;
};

/** Acknowledges nothing until a time of the board's clock. */
struct FailsUntil : sim_board::I2cDevice {
    FailsUntil(std::shared_ptr<sim_board::I2cDevice> device, const sim_board::Clock& board_clock, uint64_t us)
        : chip(std::move(device)), clock(board_clock), end_us(us)
    {
    }
    bool works() const { return clock.now_us() >= end_us; }
    bool write(std::span<const uint8_t> bytes) override { return works() && chip->write(bytes); }
    bool read(std::span<uint8_t> bytes) override { return works() && chip->read(bytes); }
    const std::shared_ptr<sim_board::I2cDevice> chip;
    const sim_board::Clock& clock;
    const uint64_t end_us;
};

class Tca8418Driver : public testing::Test {
protected:
    ~Tca8418Driver() override { ::close(fd); }

    static Event take(int descriptor)
    {
        Event event{0};
        event.result = tca8418_irq_handler(descriptor, 0, &event.row, &event.col, &event.state);
        return event;
    }
    Event take() const { return take(fd); }
    void fail_for(uint64_t us)
    {
        auto& bus = board->i2c();
        bus.attach(0x34, std::make_shared<FailsUntil>(bus.device(0x34), board->clock(),
                                                      board->clock().now_us() + us));
    }
    std::vector<std::string> trace() { return board->trace().take(); }

    sim_board::InstalledBoard board{sim_board::kBenchtopWiring};
    const sim_board::SelfAdvancing waits_pass{board->clock()};
    Tca8418& chip = *board->keypad();
    int fd = wiringPiI2CSetup(0x34);
};

TEST_F(Tca8418Driver, SetsTheMatrixUpBeforeItEnablesTheInterrupt)
{
    trace();
    EXPECT_EQ(tca8418_configure(fd, 6, 10), 0);
    EXPECT_TRUE(expect_trace(trace(), R"(
        i2c 0x34 [0x1d] = 0x3f
        i2c 0x34 [0x1e] = 0xff
        i2c 0x34 [0x1f] = 0x03
        i2c 0x34 [0x01] = 0x11
    )"));
}

TEST_F(Tca8418Driver, EveryMatrixUsesTheFirstLines)
{
    for (unsigned rows = 1; rows <= 8; ++rows) {
        for (unsigned cols = 1; cols <= 10; ++cols) {
            EXPECT_EQ(tca8418_configure(fd, rows, cols), 0);
            EXPECT_EQ(chip.reg(0x1d), (1 << rows) - 1);
            EXPECT_EQ(chip.reg(0x1e) | chip.reg(0x1f) << 8, (1 << cols) - 1);
        }
    }
}

TEST_F(Tca8418Driver, AnUnsupportedMatrixIsRefusedBeforeAnyAccess)
{
    trace();
    EXPECT_LT(tca8418_configure(fd, 0, 10), 0);
    EXPECT_LT(tca8418_configure(fd, 9, 10), 0);
    EXPECT_LT(tca8418_configure(fd, 6, 0), 0);
    EXPECT_LT(tca8418_configure(fd, 6, 11), 0);
    EXPECT_TRUE(trace().empty());
}

TEST_F(Tca8418Driver, AnyRefusedWriteOfTheSetUpFailsAndNothingFollowsIt)
{
    for (size_t refused = 0; refused < 4; ++refused) {
        const auto device = refuse_one(board->i2c(), 0x34, refused);
        trace();
        EXPECT_LT(tca8418_configure(fd, 6, 10), 0) << refused;
        EXPECT_EQ(trace().size(), refused + 1);
        EXPECT_EQ(chip.reg(0x01), 0) << "no interrupt is enabled";
    }
}

TEST_F(Tca8418Driver, TakesTheOldestEventAndClearsTheInterrupt)
{
    tca8418_configure(fd, 6, 10);
    chip.press(3, 2);
    chip.release(3, 2);
    trace();
    EXPECT_EQ(take(), (Event{0, 3, 2, 0x80}));
    EXPECT_TRUE(expect_trace(trace(), R"(
        i2c 0x34 [0x04] -> 0xa1
        i2c 0x34 [0x02] = 0x1f
    )"));
    EXPECT_EQ(chip.interrupt_level(), 0) << "one is left";
    EXPECT_EQ(take(), (Event{0, 3, 2, 0}));
    EXPECT_EQ(chip.interrupt_level(), 1);
    EXPECT_EQ(take(), kNothing);
}

TEST_F(Tca8418Driver, EveryKeyIsReportedByItsRowAndColumn)
{
    tca8418_configure(fd, 8, 10);
    for (int row = 0; row < 8; ++row) {
        for (int col = 0; col < 10; ++col) {
            chip.press(row, col);
            chip.release(row, col);
            EXPECT_EQ(take(), (Event{0, row, col, 0x80}));
            EXPECT_EQ(take(), (Event{0, row, col, 0}));
        }
    }
}

TEST_F(Tca8418Driver, TheLineFallsOnceForEachEvent)
{
    std::vector<int> levels;
    tca8418_configure(fd, 6, 10);
    for (int key = 0; key < 10; ++key) {
        chip.press(0, key);
    }
    chip.on_interrupt([&](int level) { levels.push_back(level); });
    for (int key = 0; key < 10; ++key) {
        EXPECT_EQ(take(), (Event{0, 0, key, 0x80}));
    }
    std::vector<int> expected{0};
    for (int key = 0; key < 9; ++key) {
        expected.insert(expected.end(), {1, 0});
    }
    expected.push_back(1);
    EXPECT_EQ(levels, expected);
    chip.on_interrupt({});
}

TEST_F(Tca8418Driver, AnOverflowLosesTheNewestEventsAndLeavesTheLineFree)
{
    tca8418_configure(fd, 6, 10);
    for (int key = 0; key < 10; ++key) {
        chip.press(0, key);
    }
    chip.press(5, 9);
    for (int key = 0; key < 10; ++key) {
        EXPECT_EQ(take(), (Event{0, 0, key, 0x80}));
    }
    EXPECT_EQ(take(), kNothing);
    EXPECT_EQ(chip.interrupt_level(), 1);
    EXPECT_EQ(chip.reg(0x02), 0);
}

TEST_F(Tca8418Driver, TheThreeKeysOfCtrlAltDelLeaveTheLineFree)
{
    tca8418_configure(fd, 6, 10);
    for (int row = 0; row < 3; ++row) {
        chip.press(row, 0);
    }
    for (int row = 0; row < 3; ++row) {
        EXPECT_EQ(take(), (Event{0, row, 0, 0x80}));
    }
    EXPECT_EQ(chip.interrupt_level(), 1);
}

TEST_F(Tca8418Driver, EventsFromBeforeTheSetUpAreKept)
{
    tca8418_configure(fd, 6, 10);
    chip.press(1, 1);
    EXPECT_EQ(tca8418_configure(fd, 6, 10), 0);
    EXPECT_EQ(take(), (Event{0, 1, 1, 0x80}));
}

TEST_F(Tca8418Driver, AFailedAccessIsRetried)
{
    tca8418_configure(fd, 6, 10);
    for (const size_t refused : {0u, 1u, 2u}) {
        chip.press(4, 5);
        const auto device = refuse_one(board->i2c(), 0x34, refused);
        trace();
        EXPECT_EQ(take(), (Event{0, 4, 5, 0x80}));
        EXPECT_TRUE(expect_trace(trace(), refused == 2 ? R"(
            i2c 0x34 [0x04] -> 0xae
            i2c 0x34 [0x02] = 0x1f -> EREMOTEIO
            delay 5000
            i2c 0x34 [0x02] = 0x1f
        )"
                                                       : R"(
            i2c 0x34 [0x04] -> EREMOTEIO
            delay 5000
            i2c 0x34 [0x04] -> 0xae
            i2c 0x34 [0x02] = 0x1f
        )"));
        EXPECT_EQ(chip.interrupt_level(), 1);
        chip.release(4, 5);
        EXPECT_EQ(take(), (Event{0, 4, 5, 0}));
    }
}

TEST_F(Tca8418Driver, ABusThatFailsFor45MillisecondsCostsNoEvent)
{
    tca8418_configure(fd, 6, 10);
    chip.press(4, 5);
    fail_for(45'000);
    EXPECT_EQ(take(), (Event{0, 4, 5, 0x80}));
    EXPECT_EQ(chip.interrupt_level(), 1) << "free for the edge of the next event";
}

TEST_F(Tca8418Driver, AnEventThatCannotBeReadTriggersAnotherCall)
{
    tca8418_configure(fd, 6, 10);
    chip.press(4, 5);
    std::vector<int> levels;
    chip.on_interrupt([&](int level) { levels.push_back(level); });
    fail_for(60'000);
    EXPECT_EQ(take(), kNothing);
    EXPECT_EQ(levels, (std::vector<int>{0, 1, 0})) << "the edge that triggers the next call";
    EXPECT_EQ(take(), (Event{0, 4, 5, 0x80}));
    chip.on_interrupt({});
}

TEST_F(Tca8418Driver, ABusThatKeepsFailingIsReportedEventually)
{
    tca8418_configure(fd, 6, 10);
    chip.press(4, 5);
    fail_for(1'000'000);
    trace();
    EXPECT_EQ(take(), kNothing);
    const std::vector<std::string> lines = trace();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "i2c 0x34 [0x04] -> EREMOTEIO"), 10);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "i2c 0x34 [0x02] = 0x1f -> EREMOTEIO"), 10);
    EXPECT_EQ(board->clock().now_us(), 90'000u);
    EXPECT_EQ(chip.interrupt_level(), 0);
}

TEST_F(Tca8418Driver, AnAbsentChipOrAClosedDescriptorIsAFailure)
{
    board->i2c().attach(0x34, nullptr);
    EXPECT_LT(tca8418_configure(fd, 6, 10), 0);
    EXPECT_EQ(take(), kNothing);
    EXPECT_LT(tca8418_configure(-1, 6, 10), 0);
    trace();
    EXPECT_EQ(take(-1), kNothing);
    EXPECT_TRUE(trace().empty());
}

// Only the numbers 1 to 80 are keys of the matrix: 0 is no event, 97 to 114 are lines of their own.
TEST_F(Tca8418Driver, EveryByteOfTheEventRegisterIsAKeyOrNothing)
{
    for (int byte = 0; byte < 256; ++byte) {
        board->i2c().attach(0x34,
                            std::make_shared<ByteArray>(std::vector<uint8_t>{static_cast<uint8_t>(byte)}));
        const int number = byte & 0x7f;
        const Event expected = number >= 1 && number <= 80
                                   ? Event{0, (number - 1) / 10, (number - 1) % 10, byte & 0x80}
                                   : kNothing;
        EXPECT_EQ(take(), expected) << byte;
    }
}

} // namespace
