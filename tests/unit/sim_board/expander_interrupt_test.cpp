// Against the data sheet of the MCP23017: interrupt logic.

#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "board/expander_mcp23017.h"

namespace sim_board {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr auto kA = Mcp23017::kA;
constexpr auto kB = Mcp23017::kB;

constexpr uint8_t kIntenB = 0x05;
constexpr uint8_t kDefvalB = 0x07;
constexpr uint8_t kIntconB = 0x09;
constexpr uint8_t kIocon = 0x0a;
constexpr uint8_t kIntfB = 0x0f;
constexpr uint8_t kIntcapB = 0x11;
constexpr uint8_t kGpioA = 0x12;
constexpr uint8_t kGpioB = 0x13;

struct Mcp23017Interrupt : testing::Test {
    Mcp23017 chip;

    void set(uint8_t address, uint8_t value)
    {
        const Bytes bytes{address, value};
        chip.write(bytes);
    }
    uint8_t get(uint8_t address)
    {
        const Bytes pointer{address};
        Bytes value(1);
        chip.write(pointer);
        chip.read(value);
        return value[0];
    }
};

TEST_F(Mcp23017Interrupt, OutputsIdleHighAndFallOnAChange)
{
    EXPECT_EQ(chip.interrupt_level(kB), 1);
    set(kIntenB, 0x20);
    EXPECT_EQ(chip.interrupt_level(kB), 1);
    chip.drive(kB, 0x20, 0x20);
    EXPECT_EQ(chip.interrupt_level(kB), 0);
    EXPECT_EQ(chip.interrupt_level(kA), 1);
    EXPECT_EQ(get(kIntfB), 0x20);
}

TEST_F(Mcp23017Interrupt, APinThatIsNotEnabledCausesNothing)
{
    set(kIntenB, 0x20);
    chip.drive(kB, 0xdf, 0xff);
    EXPECT_EQ(chip.interrupt_level(kB), 1);
    EXPECT_EQ(get(kIntfB), 0x00);
}

TEST_F(Mcp23017Interrupt, AnOutputPinCausesNothing)
{
    set(0x01, 0xdf);
    set(kIntenB, 0x20);
    set(kGpioB, 0x20);
    EXPECT_EQ(chip.interrupt_level(kB), 1);
}

TEST_F(Mcp23017Interrupt, ReadingGpioEndsAnInterruptOnChange)
{
    set(kIntenB, 0x20);
    chip.drive(kB, 0x20, 0x20);
    EXPECT_EQ(get(kGpioB), 0x20);
    EXPECT_EQ(chip.interrupt_level(kB), 1);
    EXPECT_EQ(get(kIntfB), 0x00);
    chip.drive(kB, 0x20, 0x00);
    EXPECT_EQ(chip.interrupt_level(kB), 0);
}

TEST_F(Mcp23017Interrupt, ReadingIntcapEndsItButIntfOrOlatDoesNot)
{
    set(kIntenB, 0x20);
    chip.drive(kB, 0x20, 0x20);
    get(kIntfB);
    get(0x15);
    EXPECT_EQ(chip.interrupt_level(kB), 0);
    get(kIntcapB);
    EXPECT_EQ(chip.interrupt_level(kB), 1);
}

TEST_F(Mcp23017Interrupt, ReadingTheOtherPortDoesNotEndIt)
{
    set(kIntenB, 0x20);
    chip.drive(kB, 0x20, 0x20);
    get(kGpioA);
    EXPECT_EQ(chip.interrupt_level(kB), 0);
}

TEST_F(Mcp23017Interrupt, IntcapKeepsThePortAsItWasAtTheFirstCause)
{
    set(kIntenB, 0x60);
    chip.drive(kB, 0x20, 0x20);
    chip.drive(kB, 0x40, 0x40);
    EXPECT_EQ(get(kIntfB), 0x20);
    EXPECT_EQ(get(kIntcapB), 0x20);
    EXPECT_EQ(get(kGpioB), 0x60);
}

TEST_F(Mcp23017Interrupt, WithDefvalTheOtherLevelInterrupts)
{
    chip.drive(kB, 0x20, 0x20);
    set(kDefvalB, 0x20);
    set(kIntconB, 0x20);
    set(kIntenB, 0x20);
    EXPECT_EQ(chip.interrupt_level(kB), 1);
    chip.drive(kB, 0x20, 0x00);
    EXPECT_EQ(chip.interrupt_level(kB), 0);
    chip.drive(kB, 0x20, 0x20);
    EXPECT_EQ(chip.interrupt_level(kB), 0);
    get(kGpioB);
    EXPECT_EQ(chip.interrupt_level(kB), 1);
}

TEST_F(Mcp23017Interrupt, WithDefvalItRecursAtOnceWhileThePinDiffers)
{
    std::vector<std::pair<int, int>> levels;
    set(kDefvalB, 0x20);
    set(kIntconB, 0x20);
    set(kIntenB, 0x20);
    EXPECT_EQ(chip.interrupt_level(kB), 0); // the pin is at 0 already
    chip.on_interrupt([&](Mcp23017::Port port, int level) { levels.emplace_back(port, level); });
    levels.clear();
    get(kGpioB);
    EXPECT_EQ(levels, (std::vector<std::pair<int, int>>{{kB, 1}, {kB, 0}}));
}

TEST_F(Mcp23017Interrupt, MirrorShowsBothPortsAtBothOutputs)
{
    set(kIocon, Mcp23017::kMirror);
    set(kIntenB, 0x01);
    chip.drive(kB, 0x01, 0x01);
    EXPECT_EQ(chip.interrupt_level(kA), 0);
    EXPECT_EQ(chip.interrupt_level(kB), 0);
}

TEST_F(Mcp23017Interrupt, IntpolInvertsTheOutputsAndOpenDrainOverridesIt)
{
    set(kIocon, Mcp23017::kIntpol);
    EXPECT_EQ(chip.interrupt_level(kB), 0);
    set(kIntenB, 0x01);
    chip.drive(kB, 0x01, 0x01);
    EXPECT_EQ(chip.interrupt_level(kB), 1);
    set(kIocon, Mcp23017::kIntpol | Mcp23017::kOdr);
    EXPECT_EQ(chip.interrupt_level(kB), 0);
}

TEST_F(Mcp23017Interrupt, TheListenerIsCalledOnceForEachNewLevel)
{
    std::vector<std::pair<int, int>> levels;
    chip.on_interrupt([&](Mcp23017::Port port, int level) { levels.emplace_back(port, level); });
    set(kIntenB, 0x03);
    chip.drive(kB, 0x01, 0x01);
    chip.drive(kB, 0x02, 0x02);
    get(kGpioB);
    chip.set_reset(true);
    EXPECT_EQ(levels, (std::vector<std::pair<int, int>>{{kA, 1}, {kB, 1}, {kB, 0}, {kB, 1}}));
}

TEST_F(Mcp23017Interrupt, ResetEndsAnInterrupt)
{
    set(kIntenB, 0x01);
    chip.drive(kB, 0x01, 0x01);
    chip.set_reset(true);
    EXPECT_EQ(chip.interrupt_level(kB), 1);
    chip.set_reset(false);
    EXPECT_EQ(get(kIntfB), 0x00);
}

TEST_F(Mcp23017Interrupt, EnablingAPinDoesNotInterruptForEarlierChanges)
{
    chip.drive(kB, 0x20, 0x20);
    set(kIntenB, 0x20);
    EXPECT_EQ(chip.interrupt_level(kB), 1);
}

} // namespace
} // namespace sim_board
