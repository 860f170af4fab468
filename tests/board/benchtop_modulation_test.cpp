#include "benchtop_routing_bench.h"
#include "unit/i2c_keyboard/refuses_one.h"

using namespace board_test;
using sim_board::expect_trace;

namespace {

struct Step {
    unsigned a_clear;
    unsigned a_set;
    unsigned b_clear;
    unsigned b_set;
    unsigned strobe;
    bool extra_wait;
};

// clang-format off
const std::map<std::string, std::vector<Step>> kSequences = {
    {"DISABLE_MOD_CH1", {{0x60, 0, 0xA0, 0, 0x80, true}, {0x40, 0x20, 0xA0, 0, 0x80, false}}},
    {"ENABLE_PM_CH1", {{0x60, 0, 0xA0, 0, 0x80, true}}},
    {"ENABLE_FM_CH1", {{0x60, 0, 0xA0, 0, 0x80, true}, {0x18, 0, 0x0A, 0, 0x08, false}}},
    {"ENABLE_AM_CH1", {{0x40, 0x20, 0xA0, 0, 0x80, true}, {0x18, 0, 0x0A, 0, 0x08, false}}},
    {"DISABLE_MOD_CH2", {{0x20, 0x40, 0xA0, 0, 0x80, true}, {0, 0x60, 0xA0, 0, 0x80, false}}},
    {"ENABLE_PM_CH2", {{0x20, 0x40, 0xA0, 0, 0x80, true}}},
    {"ENABLE_FM_CH2", {{0x20, 0x40, 0xA0, 0, 0x80, true}, {0x08, 0x10, 0x0A, 0, 0x08, false}}},
    {"ENABLE_AM_CH2", {{0, 0x60, 0xA0, 0, 0x80, true}, {0x08, 0x10, 0x0A, 0, 0x08, false}}},
    {"DISABLE_MOD_CH3", {{0x60, 0, 0x80, 0x20, 0x80, true}, {0x40, 0x20, 0x80, 0x20, 0x80, false}}},
    {"ENABLE_PM_CH3", {{0x60, 0, 0x80, 0x20, 0x80, true}}},
    {"ENABLE_FM_CH3", {{0x60, 0, 0x80, 0x20, 0x80, true}, {0x18, 0, 0x08, 0x02, 0x08, false}}},
    {"ENABLE_AM_CH3", {{0x40, 0x20, 0x80, 0x20, 0x80, true}, {0x18, 0, 0x08, 0x02, 0x08, false}}},
    {"DISABLE_MOD_CH4", {{0x20, 0x40, 0x80, 0x20, 0x80, true}, {0x10, 0x08, 0x0A, 0, 0x08, false}}},
    {"ENABLE_PM_CH4", {{0x20, 0x40, 0x80, 0x20, 0x80, true}}},
    {"ENABLE_FM_CH4", {{0x20, 0x40, 0x80, 0x20, 0x80, true}, {0x08, 0x10, 0x08, 0x02, 0x08, false}}},
    {"ENABLE_AM_CH4", {{0x10, 0x08, 0x0A, 0, 0x08, true}, {0x08, 0x10, 0x08, 0x02, 0x08, false}}},
};
// clang-format on

// By installed row and channel.
constexpr int kSlot[3][4] = {{4, 4, 4, 4}, {3, 4, 3, 4}, {1, 2, 3, 4}};

class BenchtopModulation : public BenchtopInstalled {
protected:
    /** The accesses of a sequence after both handles are open. */
    std::string accesses(const std::string& sequence)
    {
        expected.open(0x20);
        expected.open(0x20);
        for (const Step& step : kSequences.at(sequence)) {
            if (step.a_clear != 0) {
                expected.clear(0x20, kPortA, step.a_clear);
            }
            if (step.a_set != 0) {
                expected.set(0x20, kPortA, step.a_set);
            }
            if (step.b_clear != 0) {
                expected.clear(0x20, kPortB, step.b_clear);
            }
            if (step.b_set != 0) {
                expected.set(0x20, kPortB, step.b_set);
            }
            expected.wait(50000);
            expected.set(0x20, kPortB, step.strobe);
            if (step.extra_wait) {
                expected.wait(50000);
            }
        }
        return expected.take();
    }
    static std::string sequence(int slot, size_t modulation, bool external)
    {
        static constexpr const char* kNames[] = {"ENABLE_AM", "ENABLE_FM", "ENABLE_PM"};
        return std::string(external ? kNames[modulation] : "DISABLE_MOD") + "_CH" + std::to_string(slot);
    }
};
INSTANTIATE_TEST_SUITE_P(Channels, BenchtopModulation, testing::Values(1, 2, 3, 4, 0, 5));

TEST_P(BenchtopModulation, EveryChannelModulationAndStateRunsTheSequenceOfItsSlot)
{
    for (uint32_t channel = 1; channel <= 4; ++channel) {
        for (uint32_t modulation = 0; modulation < 3; ++modulation) {
            for (const uint32_t state : {0u, 1u, 0u, 0x100u}) {
                // Starts with all bits set and with none, so that each access shows.
                for (const uint8_t ports : Bytes{0xff, 0x00}) {
                    const std::string name = sequence(kSlot[row()][channel - 1], modulation, state != 0);
                    SCOPED_TRACE(testing::Message() << "channel " << channel << ": " << name);
                    put(0x20, kPortA, ports);
                    put(0x20, kPortB, ports);
                    select(channel);
                    EXPECT_EQ(handler.setModSrc(modulation, state), 0);
                    EXPECT_TRUE(expect_trace(trace(), accesses(name)));
                }
            }
        }
    }
    EXPECT_TRUE(logs.lines().empty());
}

TEST_P(BenchtopModulation, NumbersOutOfRangeCountAsTheFirst)
{
    const std::string name = sequence(kSlot[row()][0], 0, true);
    for (const auto& [channel, modulation] : {std::pair{0u, 0u}, {5u, 0u}, {9u, 7u}, {1u, 3u}}) {
        select(channel);
        EXPECT_EQ(handler.setModSrc(modulation, 1), 0);
        EXPECT_TRUE(expect_trace(trace(), accesses(name)));
    }
}

TEST_F(BenchtopRouting, AmOnChannelThreeMakesTheseAccesses)
{
    handler.SetNumDevices(4);
    select(3);
    put(0x20, kPortA, 0x58);
    put(0x20, kPortB, 0x88);
    EXPECT_EQ(handler.setModSrc(0, 1), 0);
    EXPECT_TRUE(expect_trace(trace(), R"(
        i2c 0x20 open
        i2c 0x20 open
        i2c 0x20 [0x12] -> 0x58
        i2c 0x20 [0x12] = 0x18
        i2c 0x20 [0x12] -> 0x18
        i2c 0x20 [0x12] = 0x38
        i2c 0x20 [0x13] -> 0x88
        i2c 0x20 [0x13] = 0x08
        i2c 0x20 [0x13] -> 0x08
        i2c 0x20 [0x13] = 0x28
        delay 50000
        i2c 0x20 [0x13] -> 0x28
        i2c 0x20 [0x13] = 0xa8
        delay 50000
        i2c 0x20 [0x12] -> 0x38
        i2c 0x20 [0x12] = 0x20
        i2c 0x20 [0x13] -> 0xa8
        i2c 0x20 [0x13] = 0xa0
        i2c 0x20 [0x13] -> 0xa0
        i2c 0x20 [0x13] = 0xa2
        delay 50000
        i2c 0x20 [0x13] -> 0xa2
        i2c 0x20 [0x13] = 0xaa
    )"));
}

TEST_F(BenchtopRouting, ModulationLogsItsStartAndEndInTheDebugLog)
{
    select(1);
    s_debug.clear();
    handler.setModSrc(2, 1);
    ASSERT_EQ(s_debug.size(), 2u);
    EXPECT_TRUE(s_debug[0].ends_with("]OrvanConnBenchtop::setModSrc started")) << s_debug[0];
    EXPECT_TRUE(s_debug[1].ends_with("]OrvanConnBenchtop::setModSrc end")) << s_debug[1];
}

TEST_F(BenchtopRouting, ModulationContinuesAfterAFailedAccess)
{
    handler.SetNumDevices(4);
    select(2);
    sim_board::insert_fault(board->i2c(), 0x20)->refuse_after(0);
    EXPECT_EQ(handler.setModSrc(0, 1), -1);
    EXPECT_EQ(logs.lines(),
              (std::vector<orvan_test::LogLine>{
                  {LOG_ERR, "setModSrc: failed to apply modulation source sequence for channel 2"}}));
    EXPECT_TRUE(expect_trace(trace(), R"(
        i2c 0x20 open
        i2c 0x20 open
        i2c 0x20 [0x12] -> EREMOTEIO
        i2c 0x20 [0x12] = 0x60 -> EREMOTEIO
        i2c 0x20 [0x13] -> EREMOTEIO
        i2c 0x20 [0x13] = 0x00 -> EREMOTEIO
        delay 50000
        i2c 0x20 [0x13] -> EREMOTEIO
        i2c 0x20 [0x13] = 0x80 -> EREMOTEIO
        delay 50000
        i2c 0x20 [0x12] -> EREMOTEIO
        i2c 0x20 [0x12] = 0x00 -> EREMOTEIO
        i2c 0x20 [0x12] -> EREMOTEIO
        i2c 0x20 [0x12] = 0x10 -> EREMOTEIO
        i2c 0x20 [0x13] -> EREMOTEIO
        i2c 0x20 [0x13] = 0x00 -> EREMOTEIO
        delay 50000
        i2c 0x20 [0x13] -> EREMOTEIO
        i2c 0x20 [0x13] = 0x08 -> EREMOTEIO
    )"));
}

TEST_F(BenchtopRouting, ModulationWithoutItsExpanderFailsAfterItsUsualTime)
{
    handler.SetNumDevices(4);
    select(1);
    sim_board::insert_fault(board->i2c(), 0x20)->absent(true);
    const uint64_t before = board->clock().now_us();
    EXPECT_EQ(handler.setModSrc(1, 1), -1);
    EXPECT_EQ(board->clock().now_us() - before, 150'000u);
    EXPECT_EQ(logs.count(LOG_ERR, "setModSrc: failed to apply modulation source sequence for channel 1"), 1u);
}

// Port A uses the second handle on 0x20, port B the first.
TEST_F(BenchtopRouting, ModulationFailsWithEitherHandleOnTheSameExpander)
{
    handler.SetNumDevices(4);
    select(1);
    const auto device = orvan_test::refuse_one(board->i2c(), 0x20, SIZE_MAX);
    for (size_t refused = 0; refused < 9; ++refused) {
        logs.clear();
        device->refuse_after(refused);
        EXPECT_EQ(handler.setModSrc(2, 1), -1) << refused;
        EXPECT_EQ(logs.lines(),
                  (std::vector<orvan_test::LogLine>{
                      {LOG_ERR, "setModSrc: failed to apply modulation source sequence for channel 1"}}));
    }
    EXPECT_EQ(handler.setModSrc(2, 1), 0);
}

TEST_F(BenchtopRouting, ModulationThatFailsOnlyAtItsLastAccessFails)
{
    handler.SetNumDevices(4);
    select(1);
    // The pulse sequence has three changes of three transfers each; a read is two transfers.
    sim_board::insert_fault(board->i2c(), 0x20)->refuse_after(8);
    EXPECT_EQ(handler.setModSrc(2, 1), -1);
    EXPECT_EQ(logs.lines().size(), 1u);
}

} // namespace
