// Against the data sheets of the CAT25 family: block protection and the write protect pin.

#include <ostream>

#include <gtest/gtest.h>

#include "board/eeprom_cat25.h"
#include "spi_master.h"

namespace sim_board {
namespace {

using Bytes = std::vector<uint8_t>;

struct Protected {
    std::shared_ptr<Clock> clock = std::make_shared<Clock>(Clock::Mode::kManual);
    Cat25Eeprom chip;

    explicit Protected(std::string_view type) : chip(cat25_type(type), clock) {}

    void write_status(uint8_t value)
    {
        spi_exchange(chip, {Cat25Eeprom::kWren});
        spi_exchange(chip, {Cat25Eeprom::kWrsr, value});
        clock->advance(Cat25Eeprom::kWriteCycleUs);
    }
    bool writes_at(size_t address)
    {
        spi_exchange(chip, {Cat25Eeprom::kWren});
        Bytes sent{Cat25Eeprom::kWrite};
        if (chip.type().address_bytes == 2) {
            sent.push_back(static_cast<uint8_t>(address >> 8));
        }
        sent.push_back(static_cast<uint8_t>(address));
        sent.push_back(0x00);
        spi_exchange(chip, sent);
        clock->advance(Cat25Eeprom::kWriteCycleUs);
        return chip.contents()[address] == 0x00;
    }
};

struct BlockProtection {
    uint8_t status;
    size_t first_locked; // 0x2000: none
};

void PrintTo(const BlockProtection& protection, std::ostream* out)
{
    *out << "status " << int{protection.status};
}

struct Cat25640Blocks : testing::TestWithParam<BlockProtection> {};

INSTANTIATE_TEST_SUITE_P(Bp, Cat25640Blocks,
                         testing::Values(BlockProtection{0x00, 0x2000}, BlockProtection{0x04, 0x1800},
                                         BlockProtection{0x08, 0x1000}, BlockProtection{0x0c, 0x0000}));

TEST_P(Cat25640Blocks, LockTheUpperPartOfTheCells)
{
    Protected bench("CAT25640");
    bench.write_status(GetParam().status);
    for (const size_t address : {0x0000u, 0x0fffu, 0x1000u, 0x17ffu, 0x1800u, 0x1fffu}) {
        EXPECT_EQ(bench.writes_at(address), address < GetParam().first_locked) << std::hex << address;
    }
}

TEST(Cat25Protection, ARefusedWriteLeavesTheChipEnabledAndReady)
{
    Protected bench("CAT25640");
    bench.write_status(0x0c);
    EXPECT_FALSE(bench.writes_at(0));
    EXPECT_EQ(bench.chip.status(), 0x0c | Cat25Eeprom::kWel);
    EXPECT_EQ(bench.chip.write_cycles(), 1u);
}

TEST(Cat25Protection, WrsrNeedsWriteEnableAndData)
{
    Protected bench("CAT25640");
    spi_exchange(bench.chip, {Cat25Eeprom::kWrsr, 0x0c});
    EXPECT_EQ(bench.chip.status(), 0);
    spi_exchange(bench.chip, {Cat25Eeprom::kWren});
    spi_exchange(bench.chip, {Cat25Eeprom::kWrsr});
    EXPECT_EQ(bench.chip.status(), Cat25Eeprom::kWel);
}

TEST(Cat25Protection, WrsrTakesAWriteCycleAndWritesOnlyItsBits)
{
    Protected bench("CAT25640");
    spi_exchange(bench.chip, {Cat25Eeprom::kWren});
    spi_exchange(bench.chip, {Cat25Eeprom::kWrsr, 0xff});
    EXPECT_EQ(bench.chip.status(), 0x8c | Cat25Eeprom::kWel | Cat25Eeprom::kRdy);
    bench.clock->advance(Cat25Eeprom::kWriteCycleUs);
    EXPECT_EQ(bench.chip.status(), 0x8c);
}

TEST(Cat25Protection, WpGuardsTheStatusRegisterOnlyWithWpen)
{
    Protected bench("CAT25640");
    bench.chip.set_write_protect_pin(0);
    bench.write_status(0x80);
    EXPECT_EQ(bench.chip.status(), 0x80);
    bench.write_status(0x00);
    EXPECT_EQ(bench.chip.status(), 0x80 | Cat25Eeprom::kWel);
    EXPECT_TRUE(bench.writes_at(0));
    bench.chip.set_write_protect_pin(1);
    bench.write_status(0x00);
    EXPECT_EQ(bench.chip.status(), 0x00);
}

TEST(Cat25Protection, SmallTypesHaveNoWpenAndReadTheirUpperBitsAsOne)
{
    for (const char* type : {"CAT25010", "CAT25020", "CAT25040"}) {
        Protected bench(type);
        EXPECT_EQ(bench.chip.status(), 0xf0) << type;
        bench.write_status(0x84);
        EXPECT_EQ(bench.chip.status(), 0xf4) << type;
    }
}

TEST(Cat25Protection, WpGuardsAllOfASmallType)
{
    Protected bench("CAT25020");
    bench.chip.set_write_protect_pin(0);
    EXPECT_FALSE(bench.writes_at(0));
    bench.write_status(0x04);
    EXPECT_EQ(bench.chip.status(), 0xf0 | Cat25Eeprom::kWel);
    bench.chip.set_write_protect_pin(1);
    EXPECT_TRUE(bench.writes_at(0));
}

} // namespace
} // namespace sim_board
