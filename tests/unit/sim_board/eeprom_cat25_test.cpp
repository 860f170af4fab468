// Against the data sheets of the CAT25 family: instruction set, status register, byte and page write, read
// sequence.

#include <filesystem>
#include <fstream>
#include <memory>
#include <numeric>

#include <unistd.h>

#include <gtest/gtest.h>

#include "board/eeprom_cat25.h"
#include "spi_master.h"
#include "support/long_ago.h"

namespace sim_board {
namespace {

using Bytes = std::vector<uint8_t>;

/** A chip on a stopped clock. */
struct Bench {
    std::shared_ptr<Clock> clock = std::make_shared<Clock>(Clock::Mode::kManual);
    Cat25Eeprom chip;

    explicit Bench(const Cat25Type& type, const std::string& image = {}) : chip(type, clock, image) {}

    Bytes command(uint8_t opcode, size_t address, const Bytes& data)
    {
        const Cat25Type& type = chip.type();
        Bytes sent{opcode};
        if (type.a8_in_opcode && address >= 0x100) {
            sent[0] |= Cat25Eeprom::kA8;
        }
        for (unsigned i = type.address_bytes; i-- > 0;) {
            sent.push_back(static_cast<uint8_t>(address >> (8 * i)));
        }
        sent.insert(sent.end(), data.begin(), data.end());
        Bytes received = spi_exchange(chip, sent);
        received.erase(received.begin(), received.begin() + 1 + type.address_bytes);
        return received;
    }
    Bytes read(size_t address, size_t count) { return command(Cat25Eeprom::kRead, address, Bytes(count, 0)); }
    void write(size_t address, const Bytes& data)
    {
        spi_exchange(chip, {Cat25Eeprom::kWren});
        command(Cat25Eeprom::kWrite, address, data);
    }
    void write_and_wait(size_t address, const Bytes& data)
    {
        write(address, data);
        clock->advance(Cat25Eeprom::kWriteCycleUs);
    }
    uint8_t status() { return spi_exchange(chip, {Cat25Eeprom::kRdsr, 0}).back(); }
};

Bytes counting(size_t count)
{
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), uint8_t{1});
    return bytes;
}

struct Cat25EveryType : testing::TestWithParam<std::string_view> {
    Bench bench{cat25_type(GetParam())};
    const Cat25Type& type = bench.chip.type();
    const size_t capacity = type.capacity;
    const size_t page = type.page;
};

std::vector<std::string_view> type_names()
{
    std::vector<std::string_view> names;
    for (const Cat25Type& type : kCat25Types) {
        names.push_back(type.name);
    }
    return names;
}

INSTANTIATE_TEST_SUITE_P(Types, Cat25EveryType, testing::ValuesIn(type_names()),
                         [](const auto& type) { return std::string(type.param); });

TEST_P(Cat25EveryType, IsErasedAtFirst)
{
    EXPECT_EQ(bench.chip.contents(), Bytes(capacity, 0xff));
}

TEST_P(Cat25EveryType, AByteCanBeWrittenAndReadAtBothEnds)
{
    bench.write_and_wait(0, {0x12});
    bench.write_and_wait(capacity - 1, {0x34});
    EXPECT_EQ(bench.read(0, 1), Bytes{0x12});
    EXPECT_EQ(bench.read(capacity - 1, 1), Bytes{0x34});
    EXPECT_EQ(bench.chip.contents().front(), 0x12);
    EXPECT_EQ(bench.chip.contents().back(), 0x34);
    EXPECT_EQ(bench.chip.write_cycles(), 2u);
}

TEST_P(Cat25EveryType, EveryAddressLineCounts)
{
    for (size_t address = 1; address < capacity; address *= 2) {
        bench.write_and_wait(address, {static_cast<uint8_t>(std::countr_zero(address))});
    }
    for (size_t address = 1; address < capacity; address *= 2) {
        EXPECT_EQ(bench.chip.contents()[address], std::countr_zero(address)) << address;
    }
}

TEST_P(Cat25EveryType, AReadWrapsFromTheLastCellToTheFirst)
{
    bench.write_and_wait(0, {0x12});
    bench.write_and_wait(capacity - 1, {0x34});
    EXPECT_EQ(bench.read(capacity - 1, 2), (Bytes{0x34, 0x12}));
}

TEST_P(Cat25EveryType, AWholePageTakesOneWrite)
{
    const Bytes data = counting(page);
    bench.write_and_wait(page, data);
    EXPECT_EQ(bench.read(page, page), data);
    EXPECT_EQ(bench.chip.write_cycles(), 1u);
}

TEST_P(Cat25EveryType, AWriteWrapsWithinItsPage)
{
    bench.write_and_wait(2 * page - 2, {1, 2, 3});
    EXPECT_EQ(bench.read(2 * page - 2, 2), (Bytes{1, 2}));
    EXPECT_EQ(bench.read(page, 2), (Bytes{3, 0xff}));
    EXPECT_EQ(bench.read(2 * page, 1), Bytes{0xff});
}

TEST_P(Cat25EveryType, MoreThanAPageOverwritesItsBeginning)
{
    Bytes data(page, 0x00);
    data.push_back(0x77);
    bench.write_and_wait(page, data);
    EXPECT_EQ(bench.read(page, 2), (Bytes{0x77, 0x00}));
}

TEST_P(Cat25EveryType, SizesAndWidthsAreThoseOfTheFamily)
{
    EXPECT_TRUE(std::has_single_bit(type.capacity));
    EXPECT_TRUE(std::has_single_bit(type.page));
    const unsigned address_bits = static_cast<unsigned>(std::countr_zero(type.capacity));
    EXPECT_LE(address_bits, 8 * type.address_bytes + (type.a8_in_opcode ? 1 : 0));
    EXPECT_GT(address_bits, 8 * (type.address_bytes - 1));
}

struct Cat25640 : testing::Test {
    Bench bench{cat25_type("CAT25640")};
};

TEST_F(Cat25640, WriteNeedsWriteEnable)
{
    bench.command(Cat25Eeprom::kWrite, 0, {1});
    EXPECT_EQ(bench.status(), 0);
    EXPECT_EQ(bench.read(0, 1), Bytes{0xff});
    EXPECT_EQ(bench.chip.write_cycles(), 0u);
}

TEST_F(Cat25640, WrenSetsWelAndWrdiClearsIt)
{
    spi_exchange(bench.chip, {Cat25Eeprom::kWren});
    EXPECT_EQ(bench.status(), Cat25Eeprom::kWel);
    spi_exchange(bench.chip, {Cat25Eeprom::kWrdi});
    EXPECT_EQ(bench.status(), 0);
    bench.command(Cat25Eeprom::kWrite, 0, {1});
    EXPECT_EQ(bench.read(0, 1), Bytes{0xff});
}

TEST_F(Cat25640, ClocksAfterWrenAreIgnored)
{
    spi_exchange(bench.chip, {Cat25Eeprom::kWren, 0x00});
    EXPECT_EQ(bench.status(), Cat25Eeprom::kWel);
}

TEST_F(Cat25640, WrenTakesEffectWhenChipSelectRises)
{
    bench.chip.select();
    bench.chip.exchange(Cat25Eeprom::kWren);
    EXPECT_EQ(bench.chip.status(), 0);
    bench.chip.deselect();
    EXPECT_EQ(bench.chip.status(), Cat25Eeprom::kWel);
}

TEST_F(Cat25640, TheWriteCycleBeginsWhenChipSelectRises)
{
    spi_exchange(bench.chip, {Cat25Eeprom::kWren});
    bench.chip.select();
    for (const uint8_t byte : Bytes{0x02, 0x00, 0x00, 0x55}) {
        bench.chip.exchange(byte);
    }
    EXPECT_EQ(bench.chip.contents()[0], 0xff);
    EXPECT_EQ(bench.chip.status(), Cat25Eeprom::kWel);
    bench.chip.deselect();
    EXPECT_EQ(bench.chip.contents()[0], 0x55);
    EXPECT_EQ(bench.chip.status(), Cat25Eeprom::kWel | Cat25Eeprom::kRdy);
}

TEST_F(Cat25640, IsBusyForTheWriteCycleAndThenDisabled)
{
    bench.write(0, {1});
    EXPECT_EQ(bench.status(), Cat25Eeprom::kWel | Cat25Eeprom::kRdy);
    bench.clock->advance(Cat25Eeprom::kWriteCycleUs - 1);
    EXPECT_EQ(bench.status(), Cat25Eeprom::kWel | Cat25Eeprom::kRdy);
    bench.clock->advance(1);
    EXPECT_EQ(bench.status(), 0);
}

TEST_F(Cat25640, OnlyRdsrIsTakenWhileBusy)
{
    bench.write(0, {1});
    EXPECT_EQ(bench.read(0, 1), Bytes{0xff});
    spi_exchange(bench.chip, {Cat25Eeprom::kWrdi});
    bench.write(64, {2});
    bench.clock->advance(Cat25Eeprom::kWriteCycleUs);
    EXPECT_EQ(bench.status(), 0);
    EXPECT_EQ(bench.read(0, 1), Bytes{1});
    EXPECT_EQ(bench.read(64, 1), Bytes{0xff});
    EXPECT_EQ(bench.chip.write_cycles(), 1u);
}

TEST_F(Cat25640, RdsrContinuesAndShowsTheEndOfTheCycle)
{
    bench.write(0, {1});
    bench.chip.select();
    bench.chip.exchange(Cat25Eeprom::kRdsr);
    EXPECT_EQ(bench.chip.exchange(0), Cat25Eeprom::kWel | Cat25Eeprom::kRdy);
    bench.clock->advance(Cat25Eeprom::kWriteCycleUs);
    EXPECT_EQ(bench.chip.exchange(0), 0);
    bench.chip.deselect();
}

TEST_F(Cat25640, WriteWithoutDataDoesNothing)
{
    bench.write(0, {});
    EXPECT_EQ(bench.status(), Cat25Eeprom::kWel);
    spi_exchange(bench.chip, {Cat25Eeprom::kWrite, 0x00});
    EXPECT_EQ(bench.status(), Cat25Eeprom::kWel);
    EXPECT_EQ(bench.chip.write_cycles(), 0u);
}

TEST_F(Cat25640, UpperAddressBitsAreIgnored)
{
    bench.write_and_wait(0x2003, {0x5a});
    EXPECT_EQ(bench.chip.contents()[3], 0x5a);
    EXPECT_EQ(bench.read(0xe003, 1), Bytes{0x5a});
}

TEST_F(Cat25640, UnknownOpcodesAreIgnored)
{
    bench.write_and_wait(0, {1});
    for (const uint8_t opcode : Bytes{0x00, 0x07, 0x0a, 0x0b, 0x0e, 0x83, 0xff}) {
        EXPECT_EQ(spi_exchange(bench.chip, {opcode, 0, 0, 0}), Bytes(4, 0xff)) << int{opcode};
    }
    EXPECT_EQ(bench.status(), 0);
}

TEST_F(Cat25640, FollowsModes0And3UpToItsClock)
{
    EXPECT_TRUE(bench.chip.follows(0, 3'000'000));
    EXPECT_TRUE(bench.chip.follows(3, 20'000'000));
    EXPECT_FALSE(bench.chip.follows(1, 3'000'000));
    EXPECT_FALSE(bench.chip.follows(2, 3'000'000));
    EXPECT_FALSE(bench.chip.follows(0, 20'000'001));
}

TEST_F(Cat25640, PowerOnClearsWelAndEndsTheCycle)
{
    spi_exchange(bench.chip, {Cat25Eeprom::kWren});
    bench.chip.power_on();
    EXPECT_EQ(bench.status(), 0);
    bench.write(0, {1});
    bench.chip.power_on();
    EXPECT_EQ(bench.status(), 0);
}

TEST(Cat25040, AddressBit8IsBit3OfTheOpcode)
{
    Bench bench(cat25_type("CAT25040"));
    spi_exchange(bench.chip, {Cat25Eeprom::kWren});
    spi_exchange(bench.chip, {0x0a, 0x10, 0x77});
    bench.clock->advance(Cat25Eeprom::kWriteCycleUs);
    EXPECT_EQ(bench.chip.contents()[0x110], 0x77);
    EXPECT_EQ(bench.chip.contents()[0x010], 0xff);
    EXPECT_EQ(spi_exchange(bench.chip, {0x0b, 0x10, 0}).back(), 0x77);
    EXPECT_EQ(spi_exchange(bench.chip, {0x03, 0x10, 0}).back(), 0xff);
}

TEST(Cat25020, Bit3OfTheOpcodeIsIgnored)
{
    Bench bench(cat25_type("CAT25020"));
    bench.write_and_wait(0x10, {0x77});
    EXPECT_EQ(spi_exchange(bench.chip, {0x0b, 0x10, 0}).back(), 0x77);
}

TEST(Cat25Types, AnUnknownNameIsRefused)
{
    EXPECT_THROW(cat25_type("CAT25999"), std::out_of_range);
}

struct Cat25Image : testing::Test {
    const std::filesystem::path path =
        std::filesystem::temp_directory_path() / ("cat25-image-" + std::to_string(::getpid()));
    void TearDown() override { std::filesystem::remove(path); }
    Bytes file() const
    {
        std::ifstream in(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
};

TEST_F(Cat25Image, ANewImageIsErasedWithItsStatusByteAfterTheCells)
{
    Bench bench(cat25_type("CAT25010"), path);
    Bytes expected(0x80, 0xff);
    expected.push_back(0);
    EXPECT_EQ(file(), expected);
}

TEST_F(Cat25Image, APageIsInTheFileAsSoonAsItsCycleBegins)
{
    Bench bench(cat25_type("CAT25640"), path);
    bench.write(64, {1, 2, 3});
    const Bytes now = file();
    ASSERT_EQ(now.size(), 0x2001u);
    EXPECT_EQ(Bytes(now.begin() + 64, now.begin() + 68), (Bytes{1, 2, 3, 0xff}));
}

TEST_F(Cat25Image, CellsAndStatusSurviveInTheFile)
{
    {
        Bench bench(cat25_type("CAT25640"), path);
        bench.write_and_wait(64, {1, 2, 3});
        spi_exchange(bench.chip, {Cat25Eeprom::kWren});
        spi_exchange(bench.chip, {Cat25Eeprom::kWrsr, Cat25Eeprom::kWpen | Cat25Eeprom::kBp0});
    }
    Bench bench(cat25_type("CAT25640"), path);
    EXPECT_EQ(bench.read(64, 3), (Bytes{1, 2, 3}));
    EXPECT_EQ(bench.status(), Cat25Eeprom::kWpen | Cat25Eeprom::kBp0);
}

TEST_F(Cat25Image, AFileWithoutTheStatusByteIsAccepted)
{
    std::ofstream(path, std::ios::binary) << std::string(0x2000, 'x');
    Bench bench(cat25_type("CAT25640"), path);
    EXPECT_EQ(bench.read(0x1fff, 1), Bytes{'x'});
    EXPECT_EQ(bench.status(), 0);
}

TEST_F(Cat25Image, ACompleteFileIsNotWrittenUntilTheChipIs)
{
    const auto open_chip = [&] { return std::make_unique<Bench>(cat25_type("CAT25640"), path); };
    open_chip()->write(64, {1, 2, 3});
    std::filesystem::last_write_time(path, orvan_test::kLongAgo);
    const auto bench = open_chip();
    EXPECT_EQ(std::filesystem::last_write_time(path), orvan_test::kLongAgo);
    bench->write(64, {1, 2, 3});
    EXPECT_NE(std::filesystem::last_write_time(path), orvan_test::kLongAgo);
}

TEST_F(Cat25Image, AShortFileIsExtendedAsErased)
{
    std::ofstream(path, std::ios::binary) << "abc";
    Bench bench(cat25_type("CAT25640"), path);
    EXPECT_EQ(bench.read(0, 4), (Bytes{'a', 'b', 'c', 0xff}));
    EXPECT_EQ(file().size(), 0x2001u);
}

TEST_F(Cat25Image, AnUnusablePathIsRefused)
{
    EXPECT_THROW(Bench(cat25_type("CAT25640"), "/nonexistent/directory/image"), std::system_error);
}

TEST_F(Cat25Image, ProgramWritesCellsAndFileWithoutACycle)
{
    Bench bench(cat25_type("CAT25640"), path);
    const Bytes data{9, 8};
    bench.chip.program(0x1ffe, data);
    EXPECT_EQ(bench.read(0x1ffe, 2), data);
    EXPECT_EQ(file()[0x1fff], 8);
    EXPECT_EQ(bench.chip.write_cycles(), 0u);
    EXPECT_THROW(bench.chip.program(0x1fff, data), std::out_of_range);
}

} // namespace
} // namespace sim_board
