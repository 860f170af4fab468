#include <fcntl.h>
#include <linux/spi/spidev.h>

#include <gtest/gtest.h>
#include <wiringPi.h>

#include "board/current_board.h"
#include "board/fan_drive.h"
#include "hw/hw.h"
#include "spi_master.h"

using namespace sim_board;

namespace {

using Bytes = std::vector<uint8_t>;

TEST(FanDrive, RunsAtFullSpeedUntilItIsSet)
{
    const FanDrive fan;
    EXPECT_FALSE(fan.value());
    EXPECT_EQ(fan.speed(), 100);
    EXPECT_EQ(fan.messages(), 0u);
}

TEST(FanDrive, ASmallerValueIsMoreSpeed)
{
    FanDrive fan;
    const struct {
        uint8_t value;
        int speed;
    } rows[] = {{0x00, 100}, {0x19, 90}, {0x3f, 75}, {0x7f, 50}, {0xff, 0}};
    size_t count = 0;
    for (const auto& row : rows) {
        EXPECT_EQ(spi_exchange(fan, {0, 0, row.value}), Bytes(3, kFloatingByte));
        EXPECT_EQ(fan.value(), row.value);
        EXPECT_EQ(fan.speed(), row.speed) << int{row.value};
        EXPECT_EQ(fan.messages(), ++count);
    }
}

TEST(FanDrive, KeepsItsValueOnInvalidMessages)
{
    FanDrive fan;
    spi_exchange(fan, {0, 0, 0x3f});
    const Bytes wrong[] = {{0x7f}, {0, 0x7f}, {0, 0, 0, 0x7f}, {1, 0, 0x7f}, {0, 1, 0x7f}, {0, 0, 0x7f, 0}};
    for (const Bytes& bytes : wrong) {
        spi_exchange(fan, bytes);
    }
    EXPECT_EQ(fan.value(), 0x3f);
    EXPECT_EQ(fan.messages(), 1u);
    EXPECT_EQ(fan.refused(), std::size(wrong));
    spi_exchange(fan, {});
    EXPECT_EQ(fan.refused(), std::size(wrong)) << "chip select without a byte is no message";
    spi_exchange(fan, {0, 0, 0x7f});
    EXPECT_EQ(fan.value(), 0x7f) << "one bad message does not spoil the next";
}

TEST(FanDrive, TakesAValueWhenChipSelectRises)
{
    FanDrive fan;
    fan.select();
    for (const uint8_t byte : Bytes{0, 0, 0x19}) {
        fan.exchange(byte);
    }
    EXPECT_FALSE(fan.value());
    fan.deselect();
    EXPECT_EQ(fan.value(), 0x19);
}

TEST(FanDrive, LosesItsValueWithItsSupply)
{
    FanDrive fan;
    spi_exchange(fan, {0, 0, 0x3f});
    fan.power_on();
    EXPECT_FALSE(fan.value());
}

class FanOfPlatform : public testing::TestWithParam<const BoardWiring*> {};
INSTANTIATE_TEST_SUITE_P(Multiplexed, FanOfPlatform, testing::Values(&kBenchtopWiring, &kKsr7000Wiring),
                         [](const auto& tested) { return std::string(tested.param->name); });

TEST_P(FanOfPlatform, IsOnNumberFourOfTheMultiplexer)
{
    InstalledBoard board(*GetParam());
    ASSERT_TRUE(board->fan());
    wiringPiSetup();
    for (const int pin : {11, 7, 21, 6}) {
        pinMode(pin, OUTPUT);
    }
    const int fd = hw_spi_open("/dev/spidev0.1", O_RDWR);
    ASSERT_GE(fd, 0);
    for (int number = 0; number < 8; ++number) {
        digitalWrite(7, number & 1);
        digitalWrite(21, number >> 1 & 1);
        digitalWrite(6, number >> 2 & 1);
        Bytes sent{0, 0, static_cast<uint8_t>(0x40 + number)};
        spi_ioc_transfer transfer{};
        transfer.tx_buf = reinterpret_cast<uintptr_t>(sent.data());
        transfer.len = 3;
        EXPECT_EQ(hw_spi_ioctl(fd, SPI_IOC_MESSAGE(1), &transfer), 3);
    }
    hw_spi_close(fd);
    EXPECT_EQ(board->fan()->value(), 0x44);
    EXPECT_EQ(board->fan()->messages(), 1u);
}

TEST(FanDrive, ThePortableHasNone)
{
    Board board(kPortableWiring, Clock::Mode::kManual);
    EXPECT_FALSE(board.fan());
    EXPECT_FALSE(board.relays());
}

} // namespace
