#include <array>
#include <ostream>
#include <string>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "board/board.h"
#include "board/modulation_relays.h"

namespace sim_board {

static void PrintTo(const ModulationRelays::Slot& slot, std::ostream* out)
{
    *out << "path " << slot.path << ", input " << slot.input;
}

namespace {

using Routing = ModulationRelays::Routing;
using Slot = ModulationRelays::Slot;

struct Step {
    int a_clear, a_set, b_clear, b_set, strobe;
};
// clang-format off
const std::vector<Step> kOff[] = {
    {{0x60, 0, 0xa0, 0, 0x80},    {0x40, 0x20, 0xa0, 0, 0x80}},
    {{0x20, 0x40, 0xa0, 0, 0x80}, {0, 0x60, 0xa0, 0, 0x80}},
    {{0x60, 0, 0x80, 0x20, 0x80}, {0x40, 0x20, 0x80, 0x20, 0x80}},
    {{0x20, 0x40, 0x80, 0x20, 0x80}, {0x10, 0x08, 0x0a, 0, 0x08}},
};
const std::vector<Step> kPulse[] = {
    {{0x60, 0, 0xa0, 0, 0x80}},
    {{0x20, 0x40, 0xa0, 0, 0x80}},
    {{0x60, 0, 0x80, 0x20, 0x80}},
    {{0x20, 0x40, 0x80, 0x20, 0x80}},
};
const std::vector<Step> kFm[] = {
    {{0x60, 0, 0xa0, 0, 0x80},    {0x18, 0, 0x0a, 0, 0x08}},
    {{0x20, 0x40, 0xa0, 0, 0x80}, {0x08, 0x10, 0x0a, 0, 0x08}},
    {{0x60, 0, 0x80, 0x20, 0x80}, {0x18, 0, 0x08, 0x02, 0x08}},
    {{0x20, 0x40, 0x80, 0x20, 0x80}, {0x08, 0x10, 0x08, 0x02, 0x08}},
};
const std::vector<Step> kAm[] = {
    {{0x40, 0x20, 0xa0, 0, 0x80}, {0x18, 0, 0x0a, 0, 0x08}},
    {{0, 0x60, 0xa0, 0, 0x80},    {0x08, 0x10, 0x0a, 0, 0x08}},
    {{0x40, 0x20, 0x80, 0x20, 0x80}, {0x18, 0, 0x08, 0x02, 0x08}},
    {{0x10, 0x08, 0x0a, 0, 0x08}, {0x08, 0x10, 0x08, 0x02, 0x08}},
};
// clang-format on

constexpr Slot kNone{1, false};

/**
 * A benchtop's board whose ports are changed by read-modify-write over the bus; the pins of port B are
 * outputs, or set as the controller's start leaves them.
 */
class Relays : public testing::TestWithParam<int> {
protected:
    Relays()
    {
        m_fd = board.i2c().open(0x20);
        board.i2c().write_register8(m_fd, 0x00, 0x00);
        board.i2c().write_register8(m_fd, 0x01, GetParam());
    }
    ~Relays() override { ::close(m_fd); }

    void change(int reg, int clear, int set)
    {
        const int value = board.i2c().read_register8(m_fd, reg);
        board.i2c().write_register8(m_fd, reg, (value & ~clear) | set);
    }
    void run(const std::vector<Step>& steps)
    {
        for (const Step& step : steps) {
            if (step.a_clear != 0) {
                change(0x12, step.a_clear, 0);
            }
            if (step.a_set != 0) {
                change(0x12, 0, step.a_set);
            }
            change(0x13, step.b_clear, 0);
            if (step.b_set != 0) {
                change(0x13, 0, step.b_set);
            }
            change(0x13, 0, step.strobe);
        }
    }
    std::array<Slot, 4> slots()
    {
        return {relays().slot(1), relays().slot(2), relays().slot(3), relays().slot(4)};
    }
    ModulationRelays& relays() { return *board.relays(); }

    Board board{kBenchtopWiring, Clock::Mode::kManual};
    int m_fd = -1;
};
INSTANTIATE_TEST_SUITE_P(Directions, Relays, testing::Values(0x00, 0x6e), [](const auto& tested) {
    return std::string(tested.param == 0 ? "AllOutputs" : "ButtonLinesAreInputs");
});

TEST_P(Relays, InitiallyNothingIsRoutedFromOutside)
{
    EXPECT_EQ(slots(), (std::array{kNone, kNone, kNone, kNone}));
    EXPECT_EQ(relays().slot(1).routing(), Routing::kNone);
    EXPECT_EQ(relays().throws(), 0u);
}

TEST_P(Relays, ASequenceRoutesItsSlotOnly)
{
    const struct {
        const std::vector<Step>* sequences;
        Routing routing;
        Slot slot;
    } rows[] = {{kPulse, Routing::kPulse, {0, false}},
                {kFm, Routing::kFm, {0, true}},
                {kAm, Routing::kAm, {1, true}},
                {kOff, Routing::kNone, {1, false}}};
    std::array<Slot, 4> expected{};
    // Every routing after every other, in every slot.
    for (const auto& first : rows) {
        for (const auto& second : rows) {
            for (size_t slot = 0; slot < 4; ++slot) {
                run(first.sequences[slot]);
                run(second.sequences[slot]);
                expected[slot] = second.slot;
                ASSERT_EQ(slots(), expected) << slot + 1;
                ASSERT_EQ(relays().slot(slot + 1).routing(), second.routing);
            }
        }
    }
}

TEST_P(Relays, KeepTheirPositionsThroughAResetOfTheExpander)
{
    run(kAm[1]);
    board.expander(0x20).set_reset(true);
    board.expander(0x20).set_reset(false);
    EXPECT_EQ(slots(), (std::array{kNone, Slot{1, true}, kNone, kNone}));
}

TEST_P(Relays, LinesThatChangeWithoutAStrobeSwitchNothing)
{
    change(0x13, 0x88, 0x00);
    for (int value = 0; value < 256; ++value) {
        board.i2c().write_register8(m_fd, 0x12, value);
        board.i2c().write_register8(m_fd, 0x13, value & 0x77);
    }
    EXPECT_EQ(relays().throws(), 0u);
}

TEST_P(Relays, AStrobeThatStaysHighOrFallsSwitchesNothing)
{
    run(kPulse[0]);
    EXPECT_EQ(relays().throws(), 1u);
    change(0x13, 0, 0x80);
    change(0x12, 0, 0x20);
    EXPECT_EQ(relays().throws(), 1u);
    change(0x13, 0x80, 0);
    EXPECT_EQ(relays().throws(), 1u);
}

/** Drives the lines directly, without a chip. */
class RelayLines : public testing::Test {
protected:
    void strobe(int a, int b, int bit)
    {
        relays.latch(Mcp23017::kA, static_cast<uint8_t>(a));
        relays.latch(Mcp23017::kB, static_cast<uint8_t>(b));
        relays.latch(Mcp23017::kB, static_cast<uint8_t>(b | bit));
        relays.latch(Mcp23017::kB, 0);
    }
    ModulationRelays relays;
};

TEST_F(RelayLines, FourAddressesHaveNoCoil)
{
    strobe(0x60, 0x20, 0x80); // decoder one, position 1 of slot 4
    strobe(0x18, 0x00, 0x08); // decoder two, 5 to 7
    strobe(0x08, 0x02, 0x08);
    strobe(0x18, 0x02, 0x08);
    EXPECT_EQ(relays.throws(), 0u);
    strobe(0x08, 0x00, 0x08);
    EXPECT_EQ(relays.throws(), 1u);
}

TEST_F(RelayLines, TheAddressBeforeTheStrobeCounts)
{
    relays.latch(Mcp23017::kB, 0xa0); // the address line rises with the strobe, too late
    EXPECT_EQ(relays.slot(1), (Slot{0, false}));
    EXPECT_EQ(relays.slot(3), kNone);
}

TEST_F(RelayLines, BothStrobesAtOnceSwitchACoilEach)
{
    relays.latch(Mcp23017::kA, 0x50);
    relays.latch(Mcp23017::kB, 0x88);
    EXPECT_EQ(relays.slot(2), (Slot{0, true}));
    EXPECT_EQ(relays.throws(), 2u);
}

TEST_F(RelayLines, ThereIsNoSlotFive)
{
    EXPECT_THROW(relays.slot(0), std::out_of_range);
    EXPECT_THROW(relays.slot(5), std::out_of_range);
}

} // namespace
} // namespace sim_board
