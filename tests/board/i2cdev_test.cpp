#include <memory>
#include <ostream>
#include <span>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include "board_bench.h"
#include "orvan_sdk/i2cdev.h"
#include "support/log_capture.h"
#include "support/loopback.h"

using namespace board_test;
using namespace HaldeElec::Orvan;
using sim_board::expect_trace;

namespace {

constexpr uint8_t kExpander = 0x20;
constexpr uint8_t kLatch = 0x14; // OLATA
constexpr uint8_t kPolarity = 0x02;

class I2cHandle : public BoardTest {
protected:
    void SetUp() override
    {
        // The chip answers once its reset input is released.
        wiringPiSetup();
        pinMode(26, OUTPUT);
        digitalWrite(26, HIGH);
        trace();
    }
};

TEST_F(I2cHandle, AnAbsentDeviceIsNotOpenAndStatusStaysUntilAnAccess)
{
    I2CFd fd(0x33);
    EXPECT_FALSE(fd.isOpen());
    EXPECT_EQ(fd.status, 0);
    uint8_t value = 0x5a;
    EXPECT_EQ(fd.read8(0, value), -1);
    EXPECT_EQ(fd.status, -1);
    EXPECT_EQ(value, 0x5a);
}

TEST_F(I2cHandle, EveryAccessOfAnAbsentDeviceFails)
{
    uint8_t byte = 0x5a;
    uint16_t word = 0x5aa5;
    const auto status_after = [](auto access) {
        I2CFd fd(0x33);
        EXPECT_EQ(access(fd), -1);
        return fd.status;
    };
    EXPECT_EQ(status_after([&](I2CFd& fd) { return fd.read8(0, byte); }), -1);
    EXPECT_EQ(status_after([&](I2CFd& fd) { return fd.read16(0, word); }), -1);
    EXPECT_EQ(status_after([&](I2CFd& fd) { return fd.write8(0, 1); }), -1);
    EXPECT_EQ(status_after([&](I2CFd& fd) { return fd.write16(0, 1); }), -1);
    EXPECT_EQ(byte, 0x5a);
    EXPECT_EQ(word, 0x5aa5);
}

TEST_F(I2cHandle, ReadsAndWritesBytesAndWordsLowByteFirst)
{
    I2CFd fd(kExpander);
    EXPECT_TRUE(fd.isOpen());
    EXPECT_EQ(fd.write8(kPolarity, 0xff), 0);
    EXPECT_EQ(fd.write16(kLatch, 0x1234), 0);
    uint8_t byte = 0;
    uint16_t word = 0;
    EXPECT_EQ(fd.read8(kPolarity, byte), 0);
    EXPECT_EQ(fd.read16(kLatch, word), 0);
    EXPECT_EQ(byte, 0xff);
    EXPECT_EQ(word, 0x1234);
    EXPECT_EQ(fd.status, 0);
    EXPECT_EQ(board->expander(kExpander).reg(sim_board::Mcp23017::kOlat, sim_board::Mcp23017::kA), 0x34);
    EXPECT_EQ(board->expander(kExpander).reg(sim_board::Mcp23017::kOlat, sim_board::Mcp23017::kB), 0x12);
    EXPECT_TRUE(expect_trace(trace(), R"(
        i2c 0x20 open
        i2c 0x20 [0x02] = 0xff
        i2c 0x20 [0x14] = 0x1234
        i2c 0x20 [0x02] -> 0xff
        i2c 0x20 [0x14] -> 0x1234
    )"));
}

TEST_F(I2cHandle, AFailureSticksThroughLaterSuccess)
{
    const auto fault = insert_fault(board->i2c(), kExpander);
    I2CFd fd(kExpander);
    fault->not_acknowledging(true);
    EXPECT_EQ(fd.write8(kLatch, 1), -1);
    fault->not_acknowledging(false);
    EXPECT_EQ(fd.write8(kLatch, 2), 0);
    uint8_t byte = 0;
    EXPECT_EQ(fd.read8(kLatch, byte), 0);
    EXPECT_EQ(byte, 2);
    EXPECT_EQ(fd.status, -1);
    I2CFd other(kExpander);
    EXPECT_EQ(other.status, 0) << "another handle starts afresh";
}

TEST_F(I2cHandle, AFailedReadOfAPresentChipLeavesTheValue)
{
    const auto fault = insert_fault(board->i2c(), kExpander);
    I2CFd fd(kExpander);
    fault->refuse_after(0);
    uint8_t byte = 0x5a;
    uint16_t word = 0x5aa5;
    EXPECT_EQ(fd.read8(kLatch, byte), -1);
    EXPECT_EQ(fd.read16(kLatch, word), -1);
    EXPECT_EQ(byte, 0x5a);
    EXPECT_EQ(word, 0x5aa5);
}

TEST_F(I2cHandle, BitsAreSetAndClearedAmongTheOthers)
{
    I2CFd fd(kExpander);
    fd.write8(kLatch, 0x81);
    trace();
    EXPECT_EQ(i2c_set_bit(fd, kLatch, 0x24, true), 0);
    EXPECT_EQ(i2c_set_bit(fd, kLatch, 0x80, false), 0);
    EXPECT_EQ(i2c_set_mask(fd, kLatch, 0x18), 0);
    EXPECT_EQ(i2c_clr_mask(fd, kLatch, 0x05), 0);
    EXPECT_EQ(fd.status, 0);
    EXPECT_TRUE(expect_trace(trace(), R"(
        i2c 0x20 [0x14] -> 0x81
        i2c 0x20 [0x14] = 0xa5
        i2c 0x20 [0x14] -> 0xa5
        i2c 0x20 [0x14] = 0x25
        i2c 0x20 [0x14] -> 0x25
        i2c 0x20 [0x14] = 0x3d
        i2c 0x20 [0x14] -> 0x3d
        i2c 0x20 [0x14] = 0x38
    )"));
}

TEST_F(I2cHandle, AFailedReadCountsAsZeroAndTheWriteIsSent)
{
    const auto write_after_failed_read = [&](auto change) {
        board->expander(kExpander);
        const auto fault = insert_fault(board->i2c(), kExpander);
        I2CFd fd(kExpander);
        fd.write8(kLatch, 0xff);
        // The first transfer of a read fails; all later ones succeed.
        struct Once : sim_board::I2cDevice {
            explicit Once(std::shared_ptr<sim_board::I2cDevice> device) : chip(std::move(device)) {}
            bool write(std::span<const uint8_t> bytes) override { return chip->write(bytes); }
            bool read(std::span<uint8_t>) override { return false; }
            std::shared_ptr<sim_board::I2cDevice> chip;
        };
        board->i2c().attach(kExpander, std::make_shared<Once>(fault));
        EXPECT_EQ(change(fd), 0) << "the result is that of the write";
        EXPECT_EQ(fd.status, -1);
        board->i2c().attach(kExpander, fault);
        uint8_t byte = 0;
        fd.read8(kLatch, byte);
        return int{byte};
    };
    EXPECT_EQ(write_after_failed_read([](I2CFd& fd) { return i2c_set_bit(fd, kLatch, 0x10, true); }), 0x10);
    EXPECT_EQ(write_after_failed_read([](I2CFd& fd) { return i2c_set_bit(fd, kLatch, 0x10, false); }), 0x00);
    EXPECT_EQ(write_after_failed_read([](I2CFd& fd) { return i2c_set_mask(fd, kLatch, 0x24); }), 0x24);
    EXPECT_EQ(write_after_failed_read([](I2CFd& fd) { return i2c_clr_mask(fd, kLatch, 0x24); }), 0x00);
}

/** Does not acknowledge the transfer of this number. */
struct RefusesOne : sim_board::FaultyI2cDevice {
    using FaultyI2cDevice::FaultyI2cDevice;
    bool write(std::span<const uint8_t> bytes) override
    {
        return transfers++ != refused && FaultyI2cDevice::write(bytes);
    }
    bool read(std::span<uint8_t> bytes) override
    {
        return transfers++ != refused && FaultyI2cDevice::read(bytes);
    }
    size_t refused = SIZE_MAX;
    size_t transfers = 0;
};

TEST_F(I2cHandle, AnyRefusedTransferShowsInResultAndStatusAndChangesNothingElse)
{
    constexpr int kBefore = 0xa5;
    const struct {
        const char* name;
        int (*access)(I2CFd& fd);
        struct {
            int result, latch;
        } at[3]; // with that transfer refused
        size_t transfers;
    } rows[] = {
        {"read8",
         [](I2CFd& fd) {
             uint8_t value = 0x5a;
             const int result = fd.read8(kLatch, value);
             EXPECT_EQ(value, 0x5a);
             return result;
         },
         {{-1, kBefore}, {-1, kBefore}},
         2},
        {"read16",
         [](I2CFd& fd) {
             uint16_t value = 0x5aa5;
             const int result = fd.read16(kLatch, value);
             EXPECT_EQ(value, 0x5aa5);
             return result;
         },
         {{-1, kBefore}, {-1, kBefore}},
         2},
        {"write8", [](I2CFd& fd) { return fd.write8(kLatch, 0x11); }, {{-1, kBefore}}, 1},
        {"write16", [](I2CFd& fd) { return fd.write16(kLatch, 0x2211); }, {{-1, kBefore}}, 1},
        {"set a bit",
         [](I2CFd& fd) { return i2c_set_bit(fd, kLatch, 0x10, true); },
         {{0, 0x10}, {0, 0x10}, {-1, kBefore}},
         3},
        {"clear a bit",
         [](I2CFd& fd) { return i2c_set_bit(fd, kLatch, 0x01, false); },
         {{0, 0x00}, {0, 0x00}, {-1, kBefore}},
         3},
        {"set a mask",
         [](I2CFd& fd) { return i2c_set_mask(fd, kLatch, 0x18); },
         {{0, 0x18}, {0, 0x18}, {-1, kBefore}},
         3},
        {"clear a mask",
         [](I2CFd& fd) { return i2c_clr_mask(fd, kLatch, 0x81); },
         {{0, 0x00}, {0, 0x00}, {-1, kBefore}},
         3},
    };
    using Chip = sim_board::Mcp23017;
    const Chip& chip = board->expander(kExpander);
    const auto faulty = std::make_shared<RefusesOne>(board->i2c().device(kExpander));
    board->i2c().attach(kExpander, faulty);
    for (const auto& row : rows) {
        for (size_t refused = 0; refused < row.transfers; ++refused) {
            SCOPED_TRACE(std::string(row.name) + ", transfer " + std::to_string(refused));
            faulty->refused = SIZE_MAX;
            I2CFd fd(kExpander);
            ASSERT_EQ(fd.write16(kLatch, 0xc300 | kBefore), 0);
            faulty->transfers = 0;
            faulty->refused = refused;
            EXPECT_EQ(row.access(fd), row.at[refused].result);
            EXPECT_EQ(fd.status, -1);
            EXPECT_EQ(chip.reg(Chip::kOlat, Chip::kA), row.at[refused].latch);
            EXPECT_EQ(chip.reg(Chip::kOlat, Chip::kB), 0xc3);
            EXPECT_EQ(chip.reg(Chip::kIodir, Chip::kA), 0xff);
        }
    }
}

TEST_F(I2cHandle, AFailedWriteIsTheResult)
{
    const auto fault = insert_fault(board->i2c(), kExpander);
    I2CFd fd(kExpander);
    fault->refuse_after(2); // a read is two transfers
    EXPECT_EQ(i2c_set_bit(fd, kLatch, 1, true), -1);
    EXPECT_EQ(fd.status, -1);
}

TEST_F(I2cHandle, IsClosedAtTheEndOfItsScopeAndLogsNothing)
{
    orvan_test::LogCapture logs;
    const size_t before = orvan_test::open_descriptors();
    {
        I2CFd fd(kExpander);
        I2CFd absent(0x33);
        uint8_t byte = 0;
        absent.read8(0, byte);
        EXPECT_EQ(orvan_test::open_descriptors(), before + 1);
    }
    EXPECT_EQ(orvan_test::open_descriptors(), before);
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(I2cHandle, DescriptorZeroIsNotOpenButGetsClosed)
{
    const int standard_input = ::dup(STDIN_FILENO);
    board->i2c().open_next_as(STDIN_FILENO);
    {
        I2CFd fd(kExpander);
        EXPECT_FALSE(fd.isOpen());
        EXPECT_EQ(fd.write8(kLatch, 1), 0) << "it still works";
        EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD) < 0, false);
    }
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
    ::dup2(standard_input < 0 ? ::open("/dev/null", O_RDONLY) : standard_input, STDIN_FILENO);
    if (standard_input >= 0) {
        ::close(standard_input);
    }
}

} // namespace
