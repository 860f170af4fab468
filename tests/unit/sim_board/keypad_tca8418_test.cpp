// Against the data sheet of the TCA8418: registers, event FIFO, interrupt status and output.

#include <vector>

#include <gtest/gtest.h>

#include "board/keypad_tca8418.h"

namespace sim_board {
namespace {

using Bytes = std::vector<uint8_t>;
using Chip = Tca8418;

constexpr uint8_t kPress = 0x80;

struct Tca8418Test : testing::Test {
    Chip chip;
    std::vector<int> levels; // of the output, from the first one on

    void SetUp() override
    {
        chip.on_interrupt([this](int level) { levels.push_back(level); });
    }
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
    /** All lines in the matrix. */
    void enable(uint8_t cfg)
    {
        set(Chip::kKpGpio1, 0xff);
        set(Chip::kKpGpio1 + 1, 0xff);
        set(Chip::kKpGpio1 + 2, 0x03);
        set(Chip::kCfg, cfg);
    }
    void type(int keys)
    {
        for (int key = 0; key < keys; ++key) {
            ASSERT_TRUE(chip.press(key / 20, key / 2 % 10) || chip.release(key / 20, key / 2 % 10));
        }
    }
    Bytes take_all()
    {
        Bytes events;
        while (const uint8_t event = get(Chip::kKeyEventA)) {
            events.push_back(event);
        }
        return events;
    }
};

TEST_F(Tca8418Test, EveryRegisterIsZeroAtPowerOn)
{
    for (uint8_t address = 0; address < 0x40; ++address) {
        EXPECT_EQ(get(address), 0x00) << int{address};
    }
    EXPECT_EQ(levels, std::vector<int>{1});
}

TEST_F(Tca8418Test, EachRegisterKeepsItsImplementedBits)
{
    for (int address = 0; address < 0x40; ++address) {
        const bool event = address >= 0x04 && address <= 0x0d;
        const bool status = address >= 0x11 && address <= 0x16;
        const bool third = address >= 0x19 && (address - 0x19) % 3 == 0; // COL9 and COL8
        const int kept = address == 0x00 || address == 0x02 || event || status || address > 0x2e ? 0x00
                         : address == 0x03                                                       ? 0x40
                         : third                                                                 ? 0x03
                                                                                                 : 0xff;
        Chip fresh;
        const Bytes ones{static_cast<uint8_t>(address), 0xff};
        ASSERT_TRUE(fresh.write(ones));
        EXPECT_EQ(fresh.reg(static_cast<uint8_t>(address)), kept) << std::hex << address;
    }
}

TEST_F(Tca8418Test, TheAddressAdvancesOnlyWithAi)
{
    const Bytes sent{Chip::kKpGpio1, 0x11, 0x22, 0x33};
    EXPECT_TRUE(chip.write(sent));
    EXPECT_EQ(get(Chip::kKpGpio1, 3), (Bytes{0x33, 0x33, 0x33}));
    set(Chip::kCfg, Chip::kAi);
    EXPECT_TRUE(chip.write(sent));
    EXPECT_EQ(get(Chip::kKpGpio1, 4), (Bytes{0x11, 0x22, 0x03, 0x00}));
}

TEST_F(Tca8418Test, KeysAreNumberedFromOneTenToARow)
{
    enable(Chip::kKeIen);
    for (int row = 0; row < 8; ++row) {
        for (int column = 0; column < 10; ++column) {
            const auto number = static_cast<uint8_t>(row * 10 + column + 1);
            EXPECT_TRUE(chip.press(row, column));
            EXPECT_EQ(get(Chip::kKeyEventA), number | kPress);
            EXPECT_TRUE(chip.release(row, column));
            EXPECT_EQ(get(Chip::kKeyEventA), number);
        }
    }
}

TEST_F(Tca8418Test, AnUnknownKeyOrAnUnchangedStateIsRefused)
{
    enable(Chip::kKeIen);
    EXPECT_FALSE(chip.press(-1, 0));
    EXPECT_FALSE(chip.press(8, 0));
    EXPECT_FALSE(chip.press(0, -1));
    EXPECT_FALSE(chip.press(0, 10));
    EXPECT_FALSE(chip.release(0, 0));
    EXPECT_TRUE(chip.press(0, 0));
    EXPECT_FALSE(chip.press(0, 0));
    EXPECT_EQ(take_all(), Bytes{0x81});
}

TEST_F(Tca8418Test, OnlyLinesOfTheMatrixCauseEvents)
{
    set(Chip::kCfg, Chip::kKeIen);
    set(Chip::kKpGpio1, 0x3f);     // rows 0 to 5
    set(Chip::kKpGpio1 + 1, 0x01); // column 0
    set(Chip::kKpGpio1 + 2, 0x02); // column 9
    for (int row = 0; row < 8; ++row) {
        for (int column = 0; column < 10; ++column) {
            EXPECT_TRUE(chip.press(row, column));
            EXPECT_EQ(get(Chip::kKeyEventA) != 0, row < 6 && (column == 0 || column == 9))
                << row << ", " << column;
        }
    }
}

TEST_F(Tca8418Test, EventsAreQueuedInOrderAndCounted)
{
    enable(Chip::kKeIen);
    type(10);
    EXPECT_EQ(get(Chip::kKeyLckEc), 10);
    EXPECT_EQ(get(Chip::kKeyEventA), 0x81);
    EXPECT_EQ(get(Chip::kKeyLckEc), 9);
    set(Chip::kCfg, Chip::kKeIen | Chip::kAi);
    EXPECT_EQ(get(Chip::kKeyEventA + 1, 9), (Bytes{0x82, 0x02, 0x83, 0x03, 0x84, 0x04, 0x85, 0x05, 0x00}));
    EXPECT_EQ(get(Chip::kKeyLckEc), 9) << "B to J leave the events where they are";
    set(Chip::kCfg, Chip::kKeIen);
    EXPECT_EQ(take_all(), (Bytes{0x01, 0x82, 0x02, 0x83, 0x03, 0x84, 0x04, 0x85, 0x05}));
    EXPECT_EQ(get(Chip::kKeyLckEc), 0);
}

TEST_F(Tca8418Test, TheCountSharesItsRegisterWithTheLockBit)
{
    enable(0);
    set(Chip::kKeyLckEc, 0xff);
    type(3);
    EXPECT_EQ(get(Chip::kKeyLckEc), 0x43);
}

TEST_F(Tca8418Test, TheEleventhEventIsLostWithoutOverflowMode)
{
    enable(Chip::kKeIen);
    type(10);
    EXPECT_EQ(get(Chip::kIntStat), Chip::kKInt);
    EXPECT_TRUE(chip.press(7, 9));
    EXPECT_EQ(get(Chip::kIntStat), Chip::kKInt | Chip::kOvrFlowInt);
    EXPECT_EQ(get(Chip::kKeyLckEc), 10);
    const Bytes events = take_all();
    EXPECT_EQ(events.size(), 10u);
    EXPECT_EQ(events.front(), 0x81);
    EXPECT_EQ(events.back(), 0x05);
}

TEST_F(Tca8418Test, TheEleventhEventPushesTheFirstOutInOverflowMode)
{
    enable(Chip::kKeIen | Chip::kOvrFlowM);
    type(10);
    EXPECT_TRUE(chip.press(7, 9));
    EXPECT_EQ(get(Chip::kIntStat), Chip::kKInt | Chip::kOvrFlowInt);
    const Bytes events = take_all();
    EXPECT_EQ(events.size(), 10u);
    EXPECT_EQ(events.front(), 0x01);
    EXPECT_EQ(events.back(), 0xd0);
}

TEST_F(Tca8418Test, AKeyEventWithoutItsEnableSetsNoInterrupt)
{
    enable(0);
    type(2);
    EXPECT_EQ(get(Chip::kIntStat), 0);
    EXPECT_EQ(chip.interrupt_level(), 1);
    EXPECT_EQ(take_all(), (Bytes{0x81, 0x01}));
}

TEST_F(Tca8418Test, WritingAZeroClearsNothing)
{
    enable(Chip::kKeIen);
    type(11);
    set(Chip::kIntStat, 0x00);
    EXPECT_EQ(get(Chip::kIntStat), Chip::kKInt | Chip::kOvrFlowInt);
    set(Chip::kIntStat, Chip::kOvrFlowInt);
    EXPECT_EQ(get(Chip::kIntStat), Chip::kKInt);
}

TEST_F(Tca8418Test, TheOutputFallsWithTheFirstEventAndRisesWhenAllAreReadAndCleared)
{
    enable(Chip::kKeIen);
    type(2);
    EXPECT_EQ(levels, (std::vector<int>{1, 0}));
    take_all();
    EXPECT_EQ(chip.interrupt_level(), 0) << "reading alone clears nothing";
    set(Chip::kIntStat, Chip::kKInt);
    EXPECT_EQ(get(Chip::kIntStat), 0);
    EXPECT_EQ(levels, (std::vector<int>{1, 0, 1}));
}

TEST_F(Tca8418Test, WhileEventsAreLeftClearingChangesNothingWithoutIntCfg)
{
    enable(Chip::kKeIen);
    type(2);
    get(Chip::kKeyEventA);
    set(Chip::kIntStat, Chip::kKInt);
    EXPECT_EQ(get(Chip::kIntStat), Chip::kKInt);
    EXPECT_EQ(levels, (std::vector<int>{1, 0}));
}

TEST_F(Tca8418Test, WhileEventsAreLeftClearingIsANewEdgeWithIntCfg)
{
    enable(Chip::kKeIen | Chip::kIntCfg);
    type(3);
    for (int left = 2; left >= 0; --left) {
        get(Chip::kKeyEventA);
        set(Chip::kIntStat, Chip::kKInt);
    }
    EXPECT_EQ(levels, (std::vector<int>{1, 0, 1, 0, 1, 0, 1}));
    EXPECT_EQ(get(Chip::kIntStat), 0);
}

TEST_F(Tca8418Test, AnOverflowAssertsTheOutputOnlyWhenEnabled)
{
    enable(0);
    type(11);
    EXPECT_EQ(chip.interrupt_level(), 1);
    set(Chip::kCfg, Chip::kOvrFlowIen);
    EXPECT_EQ(chip.interrupt_level(), 0);
    set(Chip::kIntStat, Chip::kOvrFlowInt);
    EXPECT_EQ(chip.interrupt_level(), 1);
}

TEST_F(Tca8418Test, Keys1And11And21TogetherSetTheCadInterrupt)
{
    enable(0);
    chip.press(0, 0);
    chip.press(1, 0);
    EXPECT_EQ(get(Chip::kIntStat), 0);
    chip.press(2, 0);
    EXPECT_EQ(get(Chip::kIntStat), Chip::kCadInt);
    EXPECT_EQ(chip.interrupt_level(), 0);
    set(Chip::kIntStat, Chip::kCadInt);
    EXPECT_EQ(chip.interrupt_level(), 1);
}

TEST_F(Tca8418Test, ResetClearsSettingsAndEventsAndAcknowledgesNothing)
{
    enable(Chip::kKeIen);
    type(3);
    chip.set_reset(true);
    const Bytes pointer{Chip::kCfg};
    Bytes received(1);
    EXPECT_FALSE(chip.write(pointer));
    EXPECT_FALSE(chip.read(received));
    EXPECT_TRUE(chip.release(0, 1)) << "the keys themselves are no part of the chip";
    EXPECT_EQ(chip.interrupt_level(), 1);
    chip.set_reset(false);
    EXPECT_EQ(get(Chip::kCfg), 0);
    EXPECT_EQ(get(Chip::kKeyLckEc), 0);
}

TEST_F(Tca8418Test, ARemovedListenerIsNotCalled)
{
    enable(Chip::kKeIen);
    chip.on_interrupt({});
    type(1);
    EXPECT_EQ(levels, std::vector<int>{1});
}

} // namespace
} // namespace sim_board
