// Against the data sheet of the MCP23017: registers, address pointer, ports.

#include <vector>

#include <gtest/gtest.h>

#include "board/expander_mcp23017.h"

namespace sim_board {
namespace {

using Bytes = std::vector<uint8_t>;

struct Mcp23017Test : testing::Test {
    Mcp23017 chip;

    void set(uint8_t address, uint8_t value)
    {
        const Bytes bytes{address, value};
        ASSERT_TRUE(chip.write(bytes));
    }
    Bytes get(uint8_t address, size_t count)
    {
        const Bytes pointer{address};
        Bytes bytes(count);
        EXPECT_TRUE(chip.write(pointer));
        EXPECT_TRUE(chip.read(bytes));
        return bytes;
    }
    uint8_t get(uint8_t address) { return get(address, 1).front(); }
};

TEST_F(Mcp23017Test, PowersOnWithAllPinsAsInputsAndEverythingElseZero)
{
    Bytes expected(0x16, 0x00);
    expected[0x00] = expected[0x01] = 0xff;
    EXPECT_EQ(get(0x00, 0x16), expected);
}

TEST_F(Mcp23017Test, RegistersArePairsOfPortAAndB)
{
    struct Row {
        uint8_t address;
        Mcp23017::Register which;
    };
    for (const Row row :
         {Row{0x00, Mcp23017::kIodir}, Row{0x02, Mcp23017::kIpol}, Row{0x04, Mcp23017::kGpinten},
          Row{0x06, Mcp23017::kDefval}, Row{0x08, Mcp23017::kIntcon}, Row{0x0c, Mcp23017::kGppu},
          Row{0x14, Mcp23017::kOlat}}) {
        set(row.address, 0x35);
        set(static_cast<uint8_t>(row.address + 1), 0x53);
        EXPECT_EQ(chip.reg(row.which, Mcp23017::kA), 0x35) << int{row.address};
        EXPECT_EQ(chip.reg(row.which, Mcp23017::kB), 0x53) << int{row.address};
        EXPECT_EQ(get(row.address, 2), (Bytes{0x35, 0x53})) << int{row.address};
        set(row.address, 0);
        set(static_cast<uint8_t>(row.address + 1), 0);
    }
}

TEST_F(Mcp23017Test, IoconIsOneRegisterAtBothAddresses)
{
    set(0x0a, 0x04);
    EXPECT_EQ(get(0x0b), 0x04);
    set(0x0b, 0x40);
    EXPECT_EQ(get(0x0a), 0x40);
}

TEST_F(Mcp23017Test, Bit0OfIoconIsNotImplemented)
{
    set(0x0a, 0x05);
    EXPECT_EQ(get(0x0a), 0x04);
}

TEST_F(Mcp23017Test, WritingGpioWritesOlat)
{
    set(0x00, 0x00);
    set(0x12, 0xa5);
    EXPECT_EQ(get(0x14), 0xa5);
    EXPECT_EQ(get(0x12), 0xa5);
    EXPECT_EQ(chip.pins(Mcp23017::kA), 0xa5);
}

TEST_F(Mcp23017Test, AnOutputKeepsItsLatchWhileItIsAnInput)
{
    set(0x13, 0x0f);
    EXPECT_EQ(get(0x13), 0x00); // still inputs, undriven
    EXPECT_EQ(get(0x15), 0x0f);
    set(0x01, 0xf3);
    EXPECT_EQ(get(0x13), 0x0c);
}

TEST_F(Mcp23017Test, InputsShowTheLevelFromOutside)
{
    chip.drive(Mcp23017::kB, 0x60, 0x40);
    EXPECT_EQ(get(0x13), 0x40);
    chip.drive(Mcp23017::kB, 0x20, 0x20);
    EXPECT_EQ(get(0x13), 0x60);
    chip.release(Mcp23017::kB, 0x40);
    EXPECT_EQ(get(0x13), 0x20);
}

TEST_F(Mcp23017Test, AnOutputOverridesWhatDrivesItsPin)
{
    set(0x00, 0xfe);
    chip.drive(Mcp23017::kA, 0x03, 0x03);
    EXPECT_EQ(get(0x12), 0x02);
}

TEST_F(Mcp23017Test, GppuPullsUpWhatNothingDrives)
{
    set(0x0c, 0x81);
    EXPECT_EQ(get(0x12), 0x81);
    chip.drive(Mcp23017::kA, 0x80, 0x00);
    EXPECT_EQ(get(0x12), 0x01);
}

TEST_F(Mcp23017Test, IpolInvertsWhatGpioShows)
{
    set(0x02, 0x0f);
    chip.drive(Mcp23017::kA, 0xff, 0x3c);
    EXPECT_EQ(get(0x12), 0x33);
    EXPECT_EQ(chip.pins(Mcp23017::kA), 0x3c);
}

TEST_F(Mcp23017Test, IntfAndIntcapAreReadOnly)
{
    for (const uint8_t address : Bytes{0x0e, 0x0f, 0x10, 0x11}) {
        set(address, 0xff);
        EXPECT_EQ(get(address), 0x00) << int{address};
    }
}

TEST_F(Mcp23017Test, AWordWritesAPairLowByteToPortA)
{
    const Bytes word{0x14, 0x34, 0x12};
    chip.write(word);
    EXPECT_EQ(chip.reg(Mcp23017::kOlat, Mcp23017::kA), 0x34);
    EXPECT_EQ(chip.reg(Mcp23017::kOlat, Mcp23017::kB), 0x12);
}

TEST_F(Mcp23017Test, ThePointerAdvancesAndWrapsToTheFirstRegister)
{
    set(0x15, 0x77);
    EXPECT_EQ(get(0x15, 2), (Bytes{0x77, 0xff}));
    Bytes next(1);
    chip.read(next); // no new pointer: continues after what was read
    EXPECT_EQ(next[0], 0xff);
    chip.read(next);
    EXPECT_EQ(next[0], 0x00);
}

TEST_F(Mcp23017Test, InByteModeThePointerTogglesWithinThePair)
{
    set(0x14, 0x01);
    set(0x15, 0x02);
    set(0x0a, Mcp23017::kSeqop);
    EXPECT_EQ(get(0x14, 4), (Bytes{1, 2, 1, 2}));
    EXPECT_EQ(get(0x15, 2), (Bytes{2, 1}));
}

TEST_F(Mcp23017Test, BankModeSeparatesThePorts)
{
    set(0x0a, Mcp23017::kBank);
    set(0x0a, 0x11); // OLATA
    set(0x1a, 0x22); // OLATB
    set(0x00, 0xf0); // IODIRA
    EXPECT_EQ(chip.reg(Mcp23017::kOlat, Mcp23017::kA), 0x11);
    EXPECT_EQ(chip.reg(Mcp23017::kOlat, Mcp23017::kB), 0x22);
    EXPECT_EQ(chip.reg(Mcp23017::kIodir, Mcp23017::kA), 0xf0);
    EXPECT_EQ(get(0x0a, 2), (Bytes{0x11, 0xff})); // OLATA, then IODIRB
    EXPECT_EQ(get(0x1a, 2), (Bytes{0x22, 0xf0})); // OLATB, then IODIRA
    EXPECT_EQ(get(0x0f), 0x00);                   // unimplemented
    set(0x15, 0x00);                              // IOCON by its other address: back to the default
    EXPECT_EQ(get(0x14, 2), (Bytes{0x11, 0x22}));
}

TEST_F(Mcp23017Test, InByteModeOfBankModeThePointerStays)
{
    set(0x0a, Mcp23017::kBank | Mcp23017::kSeqop);
    set(0x0a, 0x11);
    EXPECT_EQ(get(0x0a, 3), (Bytes{0x11, 0x11, 0x11}));
}

TEST_F(Mcp23017Test, AddressesPastTheLastRegisterReadZeroAndIgnoreWrites)
{
    set(0x16, 0xff);
    set(0xff, 0xff);
    EXPECT_EQ(get(0x16), 0x00);
    EXPECT_EQ(get(0xff), 0x00);
    Bytes expected(0x16, 0x00);
    expected[0x00] = expected[0x01] = 0xff;
    EXPECT_EQ(get(0x00, 0x16), expected);
}

TEST_F(Mcp23017Test, ResetSetsThePowerOnValuesAndAcknowledgesNothing)
{
    set(0x00, 0x00);
    set(0x12, 0xff);
    chip.set_reset(true);
    const Bytes pointer{0x00};
    Bytes value(1);
    EXPECT_FALSE(chip.write(pointer));
    EXPECT_FALSE(chip.read(value));
    chip.set_reset(false);
    EXPECT_TRUE(chip.read(value));
    EXPECT_EQ(value, Bytes{0xff}) << "the address pointer is at IODIRA";
    EXPECT_EQ(get(0x00), 0xff);
    EXPECT_EQ(get(0x14), 0x00);
}

TEST_F(Mcp23017Test, AnEmptyWriteIsAcknowledged)
{
    EXPECT_TRUE(chip.write({}));
}

} // namespace
} // namespace sim_board
