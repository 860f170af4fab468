#include <cerrno>
#include <filesystem>
#include <numeric>

#include <unistd.h>

#include <gtest/gtest.h>

#include "board/eeprom_cat25.h"
#include "board/faulty_i2c_device.h"
#include "board/faulty_spi_device.h"
#include "spi_master.h"

namespace sim_board {
namespace {

using Bytes = std::vector<uint8_t>;

struct FaultyEeprom : testing::Test {
    std::shared_ptr<Clock> clock = std::make_shared<Clock>(Clock::Mode::kManual);
    std::shared_ptr<Cat25Eeprom> chip = std::make_shared<Cat25Eeprom>(cat25_type("CAT25640"), clock);
    FaultySpiDevice faulty{chip};

    void write_page(uint8_t address, const Bytes& data)
    {
        spi_exchange(faulty, {0x06, 0x00});
        Bytes sent{0x02, 0x00, address};
        sent.insert(sent.end(), data.begin(), data.end());
        spi_exchange(faulty, sent);
        clock->advance(Cat25Eeprom::kWriteCycleUs);
    }
    Bytes cells(size_t first, size_t count) const
    {
        const Bytes all = chip->contents();
        const auto begin = all.begin() + static_cast<std::ptrdiff_t>(first);
        return {begin, begin + static_cast<std::ptrdiff_t>(count)};
    }
};

TEST_F(FaultyEeprom, WithoutAFaultEverythingReachesTheChip)
{
    write_page(0, {1, 2});
    EXPECT_EQ(spi_exchange(faulty, {0x03, 0, 0, 0, 0}), (Bytes{0xff, 0xff, 0xff, 1, 2}));
    EXPECT_TRUE(faulty.follows(0, 3'000'000));
    EXPECT_FALSE(faulty.follows(1, 3'000'000));
    EXPECT_EQ(faulty.refuse_message(), 0);
}

TEST_F(FaultyEeprom, AnAbsentChipReadsOnesAndIgnoresWrites)
{
    faulty.absent(true);
    write_page(0, {1});
    EXPECT_EQ(spi_exchange(faulty, {0x05, 0}), (Bytes{0xff, 0xff}));
    faulty.absent(false);
    EXPECT_EQ(spi_exchange(faulty, {0x05, 0}), (Bytes{0xff, 0x00}));
    EXPECT_EQ(cells(0, 1), Bytes{0xff});
}

TEST_F(FaultyEeprom, NoChipAtAllIsAbsentToo)
{
    FaultySpiDevice nothing(nullptr);
    EXPECT_FALSE(nothing.follows(0, 1));
    EXPECT_EQ(spi_exchange(nothing, {0x05, 0}), (Bytes{0xff, 0xff}));
    EXPECT_EQ(nothing.refuse_message(), 0);
    nothing.power_on();
}

TEST_F(FaultyEeprom, StuckBusySetsOnlyTheBusyBitOfTheStatus)
{
    faulty.stuck_busy(true);
    spi_exchange(faulty, {0x06});
    EXPECT_EQ(spi_exchange(faulty, {0x05, 0, 0}), (Bytes{0xff, 0x03, 0x03}));
    EXPECT_EQ(spi_exchange(faulty, {0x03, 0, 0, 0}).back(), 0xff);
    faulty.stuck_busy(false);
    EXPECT_EQ(spi_exchange(faulty, {0x05, 0}).back(), 0x02);
}

TEST_F(FaultyEeprom, MessagesAfterTheFirstFewAreRefused)
{
    faulty.refuse_after(2);
    EXPECT_EQ(faulty.refuse_message(), 0);
    EXPECT_EQ(faulty.refuse_message(), 0);
    EXPECT_EQ(faulty.refuse_message(), EIO);
    EXPECT_EQ(faulty.refuse_message(), EIO);
    faulty.refuse_after(std::nullopt);
    EXPECT_EQ(faulty.refuse_message(), 0);
}

TEST_F(FaultyEeprom, AFlippedBitShowsInThatByteOfThatInstructionOnly)
{
    write_page(0, {0x10, 0x20, 0x30});
    faulty.flip_reply_bits(0x03, 4, 0x80);
    EXPECT_EQ(spi_exchange(faulty, {0x03, 0, 0, 0, 0, 0}), (Bytes{0xff, 0xff, 0xff, 0x10, 0xa0, 0x30}));
    EXPECT_EQ(spi_exchange(faulty, {0x05, 0, 0, 0, 0}), (Bytes{0xff, 0, 0, 0, 0}));
    faulty.flip_reply_bits(0x03, 4, 0);
    EXPECT_EQ(spi_exchange(faulty, {0x03, 0, 0, 0, 0}).back(), 0x20);
}

TEST_F(FaultyEeprom, APowerCutStoresTheFirstBytesOfAPageAndLeavesTheChipDead)
{
    faulty.cut_power_in(0x02, 3 + 2);
    write_page(0x40, {1, 2, 3, 4});
    EXPECT_EQ(cells(0x40, 4), (Bytes{1, 2, 0xff, 0xff}));
    EXPECT_TRUE(faulty.dead());
    EXPECT_EQ(spi_exchange(faulty, {0x05, 0}), (Bytes{0xff, 0xff}));
    write_page(0x80, {5});
    EXPECT_EQ(cells(0x80, 1), Bytes{0xff});

    faulty.power_on();
    EXPECT_FALSE(faulty.dead());
    EXPECT_EQ(spi_exchange(faulty, {0x05, 0}).back(), 0x00);
    write_page(0x80, {5, 6, 7, 8});
    EXPECT_EQ(cells(0x80, 4), (Bytes{5, 6, 7, 8}));
}

struct PowerCutAfter : FaultyEeprom, testing::WithParamInterface<size_t> {};
INSTANTIATE_TEST_SUITE_P(Bytes, PowerCutAfter, testing::Values(0u, 1u, 31u, 63u, 64u));

TEST_P(PowerCutAfter, SomeBytesOfAPageLeavesThoseNewAndTheRestOld)
{
    write_page(0, Bytes(64, 0x11));
    faulty.cut_power_in(0x02, 3 + GetParam());
    write_page(0, Bytes(64, 0x22));
    Bytes expected(64, 0x11);
    std::fill_n(expected.begin(), GetParam(), uint8_t{0x22});
    EXPECT_EQ(cells(0, 64), expected);
    EXPECT_TRUE(faulty.dead());
}

TEST(PowerCut, TheImageFileHoldsTheChipsContents)
{
    const auto path = std::filesystem::temp_directory_path() / ("power-cut-" + std::to_string(::getpid()));
    const auto clock = std::make_shared<Clock>(Clock::Mode::kManual);
    {
        FaultySpiDevice faulty(std::make_shared<Cat25Eeprom>(cat25_type("CAT25640"), clock, path));
        faulty.cut_power_in(0x02, 3 + 1);
        spi_exchange(faulty, {0x06});
        spi_exchange(faulty, {0x02, 0, 0, 1, 2});
    }
    Cat25Eeprom again(cat25_type("CAT25640"), clock, path);
    EXPECT_EQ(spi_exchange(again, {0x03, 0, 0, 0, 0}), (Bytes{0xff, 0xff, 0xff, 1, 0xff}));
    std::filesystem::remove(path);
}

/** Keeps its one byte. */
struct ByteDevice : I2cDevice {
    uint8_t value = 0x0f;
    bool in_reset = false;
    bool write(std::span<const uint8_t> bytes) override
    {
        if (bytes.size() > 1) {
            value = bytes[1];
        }
        return true;
    }
    bool read(std::span<uint8_t> bytes) override
    {
        std::fill(bytes.begin(), bytes.end(), value);
        return true;
    }
    void set_reset(bool asserted) override { in_reset = asserted; }
};

struct FaultyI2c : testing::Test {
    Trace trace;
    I2cBus bus{trace};
    std::shared_ptr<ByteDevice> chip = std::make_shared<ByteDevice>();
    std::shared_ptr<FaultyI2cDevice> faulty;
    int fd = -1;

    void SetUp() override
    {
        bus.attach(0x20, chip);
        faulty = insert_fault(bus, 0x20);
        fd = bus.open(0x20);
        ASSERT_GT(fd, 0);
    }
    void TearDown() override { ::close(fd); }
};

TEST_F(FaultyI2c, WithoutAFaultEverythingReachesTheChip)
{
    EXPECT_EQ(bus.write_register8(fd, 0, 0x33), 0);
    EXPECT_EQ(chip->value, 0x33);
    EXPECT_EQ(bus.read_register8(fd, 0), 0x33);
    faulty->set_reset(true);
    EXPECT_TRUE(chip->in_reset);
}

TEST_F(FaultyI2c, AnAbsentChipCanNotBeOpenedAndOpenHandlesFail)
{
    faulty->absent(true);
    EXPECT_EQ(bus.open(0x20), -1);
    EXPECT_EQ(bus.write_register8(fd, 0, 0x33), -1);
    EXPECT_EQ(chip->value, 0x0f);
    faulty->absent(false);
    EXPECT_EQ(bus.write_register8(fd, 0, 0x33), 0);
}

TEST_F(FaultyI2c, AChipThatDoesNotAcknowledgeOpensAndFails)
{
    faulty->not_acknowledging(true);
    const int second = bus.open(0x20);
    EXPECT_GT(second, 0);
    EXPECT_EQ(bus.read_register8(second, 0), -1);
    EXPECT_EQ(bus.write_register8(second, 0, 0x33), -1);
    EXPECT_EQ(chip->value, 0x0f);
    faulty->not_acknowledging(false);
    EXPECT_EQ(bus.read_register8(second, 0), 0x0f);
    ::close(second);
}

TEST_F(FaultyI2c, TransfersAfterTheFirstFewAreRefused)
{
    faulty->refuse_after(3);
    EXPECT_EQ(bus.write_register8(fd, 0, 1), 0);
    EXPECT_EQ(bus.read_register8(fd, 0), 1);
    EXPECT_EQ(bus.write_register8(fd, 0, 2), -1);
    EXPECT_EQ(bus.read_register8(fd, 0), -1);
    faulty->refuse_after(std::nullopt);
    EXPECT_EQ(bus.read_register8(fd, 0), 1);
}

TEST_F(FaultyI2c, AFlippedBitShowsInThatByteOfEveryRead)
{
    faulty->flip_read_bits(1, 0x80);
    EXPECT_EQ(bus.read_register8(fd, 0), 0x0f);
    EXPECT_EQ(bus.read_register16(fd, 0), 0x8f0f);
    faulty->flip_read_bits(1, 0);
    EXPECT_EQ(bus.read_register16(fd, 0), 0x0f0f);
}

TEST_F(FaultyI2c, AFaultWithoutAChipIsNoChip)
{
    insert_fault(bus, 0x55);
    EXPECT_EQ(bus.open(0x55), -1);
    EXPECT_EQ(errno, ENXIO);
}

} // namespace
} // namespace sim_board
