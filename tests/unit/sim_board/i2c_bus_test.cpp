#include <algorithm>
#include <cerrno>
#include <map>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "board/expect_trace.h"
#include "board/i2c_bus.h"

namespace sim_board {
namespace {

/** Records what is written and answers with bytes that count up. */
struct RecordingDevice : I2cDevice {
    std::vector<std::vector<uint8_t>> written;
    bool acknowledges = true;

    bool write(std::span<const uint8_t> bytes) override
    {
        written.emplace_back(bytes.begin(), bytes.end());
        return acknowledges;
    }
    bool read(std::span<uint8_t> bytes) override
    {
        uint8_t next = 0x51;
        std::generate(bytes.begin(), bytes.end(), [&] { return next++; });
        return acknowledges;
    }
};

struct I2cBusTest : testing::Test {
    Trace trace;
    I2cBus bus{trace};
    std::shared_ptr<RecordingDevice> device = std::make_shared<RecordingDevice>();
    int fd = -1;

    void SetUp() override
    {
        bus.attach(0x0b, device);
        fd = bus.open(0x0b);
        ASSERT_GT(fd, 0);
    }
    void TearDown() override { ::close(fd); }
};

TEST_F(I2cBusTest, AWordIsSentLowByteFirst)
{
    EXPECT_EQ(bus.write_register16(fd, 0x3f, 0x7f01), 0);
    EXPECT_EQ(device->written.back(), (std::vector<uint8_t>{0x3f, 0x01, 0x7f}));
}

TEST_F(I2cBusTest, AWordIsReceivedLowByteFirst)
{
    EXPECT_EQ(bus.read_register16(fd, 0x0d), 0x5251);
    EXPECT_EQ(device->written.back(), (std::vector<uint8_t>{0x0d}));
}

TEST_F(I2cBusTest, ByteAccessesCarryTheRegisterAndOneByte)
{
    EXPECT_EQ(bus.write_register8(fd, 0x12, 0x1ff), 0);
    EXPECT_EQ(device->written.back(), (std::vector<uint8_t>{0x12, 0xff}));
    EXPECT_EQ(bus.read_register8(fd, 0x13), 0x51);
    EXPECT_EQ(device->written.back(), (std::vector<uint8_t>{0x13}));
}

TEST_F(I2cBusTest, PlainReadAndWriteHaveNoRegister)
{
    EXPECT_EQ(bus.write(fd, 0x44), 0);
    EXPECT_EQ(device->written.back(), (std::vector<uint8_t>{0x44}));
    EXPECT_EQ(bus.read(fd), 0x51);
    EXPECT_EQ(device->written.size(), 1u);
}

TEST_F(I2cBusTest, EveryAccessIsRecorded)
{
    bus.write_register8(fd, 0x12, 4);
    bus.read_register8(fd, 0x12);
    bus.write_register16(fd, 0x3f, 0x7f00);
    bus.read_register16(fd, 0x0d);
    bus.write(fd, 1);
    bus.read(fd);
    EXPECT_TRUE(expect_trace(trace.lines(), R"(
        i2c 0x0b open
        i2c 0x0b [0x12] = 0x04
        i2c 0x0b [0x12] -> 0x51
        i2c 0x0b [0x3f] = 0x7f00
        i2c 0x0b [0x0d] -> 0x5251
        i2c 0x0b = 0x01
        i2c 0x0b -> 0x51)"));
}

TEST_F(I2cBusTest, AMissingAcknowledgeReturnsMinusOne)
{
    trace.clear();
    device->acknowledges = false;
    EXPECT_EQ(bus.read_register8(fd, 1), -1);
    EXPECT_EQ(errno, EREMOTEIO);
    EXPECT_EQ(bus.read_register16(fd, 1), -1);
    EXPECT_EQ(bus.write_register8(fd, 1, 2), -1);
    EXPECT_EQ(bus.write_register16(fd, 1, 2), -1);
    EXPECT_EQ(bus.read(fd), -1);
    EXPECT_EQ(bus.write(fd, 3), -1);
    EXPECT_TRUE(expect_trace(trace.lines(), R"(
        i2c 0x0b [0x01] -> EREMOTEIO
        i2c 0x0b [0x01] -> EREMOTEIO
        i2c 0x0b [0x01] = 0x02 -> EREMOTEIO
        i2c 0x0b [0x01] = 0x0002 -> EREMOTEIO
        i2c 0x0b -> EREMOTEIO
        i2c 0x0b = 0x03 -> EREMOTEIO)"));
}

TEST_F(I2cBusTest, AnAddressWithoutAChipCannotBeOpened)
{
    EXPECT_EQ(bus.open(0x34), -1);
    EXPECT_EQ(errno, ENXIO);
    EXPECT_EQ(trace.lines().back(), "i2c 0x34 open -> ENXIO");
}

TEST_F(I2cBusTest, OnRequestAnAddressWithoutAChipOpensAndItsAccessesFail)
{
    bus.open_without_device(true);
    const int nobody = bus.open(0x34);
    EXPECT_GT(nobody, 0);
    EXPECT_EQ(bus.read_register8(nobody, 0), -1);
    EXPECT_EQ(errno, ENXIO);
    ::close(nobody);
}

TEST_F(I2cBusTest, AddressesHaveSevenBits)
{
    bus.open_without_device(true);
    EXPECT_EQ(bus.open(0x80), -1);
    EXPECT_EQ(bus.open(-1), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(I2cBusTest, TwoHandlesReachTheSameChip)
{
    const int second = bus.open(0x0b);
    EXPECT_NE(second, fd);
    EXPECT_EQ(bus.write_register8(second, 1, 2), 0);
    EXPECT_EQ(bus.write_register8(fd, 3, 4), 0);
    EXPECT_EQ(device->written.size(), 2u);
    ::close(second);
}

TEST_F(I2cBusTest, AClosedHandleIsInvalid)
{
    const int second = bus.open(0x0b);
    ::close(second);
    EXPECT_EQ(bus.read_register8(second, 0), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(bus.read_register8(-1, 0), -1);
}

TEST_F(I2cBusTest, AForeignDescriptorIsInvalid)
{
    const int foreign = ::open("/dev/null", O_RDWR);
    EXPECT_EQ(bus.write_register8(foreign, 1, 2), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_TRUE(device->written.empty());
    ::close(foreign);
}

TEST_F(I2cBusTest, ARemovedChipNoLongerAnswers)
{
    bus.attach(0x0b, nullptr);
    EXPECT_EQ(bus.device(0x0b), nullptr);
    EXPECT_EQ(bus.read_register8(fd, 0), -1);
}

} // namespace
} // namespace sim_board
