#include "benchtop_routing_bench.h"
#include "unit/i2c_keyboard/refuses_one.h"

using namespace board_test;
using sim_board::expect_trace;

namespace {

INSTANTIATE_TEST_SUITE_P(Channels, BenchtopInstalled, testing::Values(1, 2, 3, 4));

// ---- RF output

struct Switch {
    unsigned reg;
    unsigned mask;
};
// By installed channels and channel, each from 1.
constexpr Switch kRfOutput[4][4] = {
    {{0x13, 0x40}, {0x13, 0x40}, {0x13, 0x40}, {0x13, 0x40}},
    {{0x13, 0x10}, {0x13, 0x40}, {0, 0}, {0, 0}},
    {{0x12, 0x20}, {0x13, 0x01}, {0x13, 0x10}, {0x13, 0x40}},
    {{0x12, 0x20}, {0x13, 0x01}, {0x13, 0x10}, {0x13, 0x40}},
};

TEST_P(BenchtopInstalled, RfOutputSwitchesOnlyTheBitOfItsChannel)
{
    for (uint32_t channel = 1; channel <= 4; ++channel) {
        const Switch& bit = kRfOutput[GetParam() - 1][channel - 1];
        for (const int value : {1, 0, 7, 0}) {
            SCOPED_TRACE(testing::Message() << "channel " << channel << " to " << value);
            select(channel);
            EXPECT_EQ(handler.SetRFOutput(value), 0);
            if (bit.reg != 0) {
                expected.open(0x20);
                expected.change(0x20, bit.reg, value == 0 ? bit.mask : 0, value == 0 ? 0 : bit.mask);
            }
            EXPECT_TRUE(expect_trace(trace(), expected.take()));
        }
    }
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(BenchtopRouting, RfOutputOfANumberOutsideOneToFourTouchesNothing)
{
    for (const int installed : {1, 4}) {
        for (const uint32_t channel : {0u, 5u, 0xffffffffu}) {
            handler.SetNumDevices(installed);
            select(channel);
            EXPECT_EQ(handler.SetRFOutput(1), 0);
        }
    }
    for (const int installed : {0, 5, -1}) {
        handler.SetNumDevices(installed);
        select(1);
        EXPECT_EQ(handler.SetRFOutput(1), 0);
    }
    EXPECT_TRUE(trace().empty());
}

TEST_F(BenchtopRouting, RfOutputThatFailsIsLoggedAndReportsSuccess)
{
    handler.SetNumDevices(4);
    select(3);
    sim_board::insert_fault(board->i2c(), 0x20)->refuse_after(2); // the read is acknowledged, the write not
    EXPECT_EQ(handler.SetRFOutput(1), 0);
    EXPECT_EQ(logs.lines(), (std::vector<orvan_test::LogLine>{
                                {LOG_ERR, "SetRFOutput: failed to set RF output for channel 3"}}));
}

TEST_F(BenchtopRouting, RfOutputWithoutItsExpanderDoesNothingSilently)
{
    handler.SetNumDevices(4);
    select(1);
    sim_board::insert_fault(board->i2c(), 0x20)->absent(true);
    EXPECT_EQ(handler.SetRFOutput(1), 0);
    EXPECT_TRUE(expect_trace(trace(), "i2c 0x20 open -> ENXIO"));
    EXPECT_TRUE(logs.lines().empty());
}

// ---- trigger impedance

TEST_F(BenchtopRouting, ImpedanceIsKeptAndSwitchesTheTerminationOfItsChannel)
{
    constexpr unsigned kTermination[] = {0x01, 0x02, 0x04, 0x08};
    for (uint32_t channel = 1; channel <= 4; ++channel) {
        for (const uint32_t impedance : {1u, 0u, 10000u, 0u}) {
            SCOPED_TRACE(testing::Message() << "channel " << channel << " to " << impedance);
            select(channel);
            EXPECT_EQ(set_impedance(impedance), 0);
            const unsigned bit = kTermination[channel - 1];
            expected.open(0x20);
            expected.change(0x20, kPortA, impedance == 0 ? bit : 0, impedance == 0 ? 0 : bit);
            EXPECT_TRUE(expect_trace(trace(), expected.take()));
            uint32_t kept = 77;
            EXPECT_EQ(handler.getTrgImp(kept), 0);
            EXPECT_EQ(kept, impedance);
        }
    }
}

TEST_F(BenchtopRouting, ImpedanceAboveFourIsKeptForItselfAndSwitchesChannelOne)
{
    select(7);
    EXPECT_EQ(set_impedance(1), 0);
    expected.open(0x20);
    expected.set(0x20, kPortA, 0x01);
    EXPECT_TRUE(expect_trace(trace(), expected.take()));
    for (const uint32_t channel : {1u, 6u, 7u, 8u}) {
        select(channel);
        uint32_t kept = 77;
        handler.getTrgImp(kept);
        EXPECT_EQ(kept, channel == 7 ? 1u : 0u) << channel;
    }
}

TEST_F(BenchtopRouting, ImpedanceOfChannelZeroIsTheNumberOfInstalledChannelsAndSwitchesChannelOne)
{
#ifdef ORVAN_UNDEFINED_SANITIZED
    GTEST_SKIP() << "UndefinedBehaviorSanitizer ends the process at the index -1";
#endif
    handler.SetNumDevices(4);
    select(0);
    EXPECT_EQ(set_impedance(2), 0);
    expected.open(0x20);
    expected.set(0x20, kPortA, 0x01);
    EXPECT_TRUE(expect_trace(trace(), expected.take()));
    uint32_t kept = 0;
    handler.getTrgImp(kept);
    EXPECT_EQ(kept, 2u);
    // The routing is that of two channels now.
    select(1);
    EXPECT_EQ(handler.SetRFOutput(1), 0);
    expected.open(0x20);
    expected.set(0x20, kPortB, 0x10);
    EXPECT_TRUE(expect_trace(trace(), expected.take()));
}

TEST_F(BenchtopRouting, ImpedanceThatFailsIsLoggedKeptAndReportsSuccess)
{
    select(2);
    sim_board::insert_fault(board->i2c(), 0x20)->not_acknowledging(true);
    EXPECT_EQ(set_impedance(1), 0);
    EXPECT_EQ(logs.lines(), (std::vector<orvan_test::LogLine>{
                                {LOG_ERR, "setTrgImp: failed to set trigger impedance for channel 2"}}));
    uint32_t kept = 0;
    handler.getTrgImp(kept);
    EXPECT_EQ(kept, 1u);
}

TEST_F(BenchtopRouting, ImpedanceWithoutItsExpanderIsKeptSilently)
{
    select(4);
    sim_board::insert_fault(board->i2c(), 0x20)->absent(true);
    EXPECT_EQ(set_impedance(1), 0);
    uint32_t kept = 0;
    handler.getTrgImp(kept);
    EXPECT_EQ(kept, 1u);
    EXPECT_TRUE(logs.lines().empty());
}

// ---- trigger coupling

struct Source {
    unsigned address;
    unsigned mask; // 8: no switch
};
// By installed row and channel.
constexpr Source kSource[3][4] = {
    {{0x24, 0x04}, {0x24, 0x08}, {0x24, 0x08}, {0x24, 0x08}},
    {{0x24, 0x02}, {0x24, 0x04}, {0x24, 0x08}, {0x24, 0x08}},
    {{0x24, 0x01}, {0x20, 0x01}, {0x24, 0x02}, {0x24, 0x04}},
};
// By installed row, coupling and channel: 0 couples.
constexpr int kCoupled[3][5][4] = {
    {{0, 1, 1, 1}, {0, 1, 1, 1}, {0, 1, 1, 1}, {0, 1, 1, 1}, {0, 1, 1, 1}},
    {{0, 1, 1, 1}, {0, 0, 1, 1}, {0, 1, 1, 1}, {0, 1, 1, 1}, {0, 0, 1, 1}},
    {{0, 1, 1, 1}, {0, 0, 1, 1}, {0, 1, 0, 1}, {0, 1, 1, 0}, {0, 0, 0, 0}},
};

TEST_P(BenchtopInstalled, TriggerSourceSetsItsChannelsSwitchAndRestoresTheTermination)
{
    for (uint32_t channel = 1; channel <= 4; ++channel) {
        for (uint8_t couple = 0; couple <= 4; ++couple) {
            for (const uint32_t impedance : {0u, 1u}) {
                SCOPED_TRACE(testing::Message()
                             << "channel " << channel << ", coupling " << int{couple} << ", " << impedance);
                select(channel);
                set_impedance(impedance);
                trace();
                const unsigned termination = 1u << (channel - 1);
                // Both start at the opposite level, so that each access shows.
                put(0x20, kPortA, static_cast<uint8_t>(impedance == 0 ? 0xff : 0x00));
                put(0x24, kPortA, static_cast<uint8_t>(kCoupled[row()][couple][channel - 1] ? 0x00 : 0xff));

                EXPECT_EQ(handler.setTrgSrc(couple), 0);
                for (const unsigned address : {0x20u, 0x20u, 0x24u}) {
                    expected.open(address);
                }
                const Source& source = kSource[row()][channel - 1];
                if (source.mask < 8) {
                    const bool set = kCoupled[row()][couple][channel - 1] != 0;
                    expected.change(source.address, kPortA, set ? 0 : source.mask, set ? source.mask : 0);
                }
                expected.change(0x20, kPortA, impedance == 0 ? termination : 0,
                                impedance == 0 ? 0 : termination);
                EXPECT_TRUE(expect_trace(trace(), expected.take()));
            }
        }
    }
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(BenchtopRouting, CouplingOfAllOnChannelOneClearsItsSwitchAndWritesItsTermination)
{
    handler.SetNumDevices(4);
    select(1);
    put(0x20, kPortA, 0x01);
    put(0x24, kPortA, 0x0f);
    EXPECT_EQ(handler.setTrgSrc(4), 0);
    EXPECT_TRUE(expect_trace(trace(), R"(
        i2c 0x20 open
        i2c 0x20 open
        i2c 0x24 open
        i2c 0x24 [0x12] -> 0x0f
        i2c 0x24 [0x12] = 0x0e
        i2c 0x20 [0x12] -> 0x01
        i2c 0x20 [0x12] = 0x00
    )"));
}

TEST_F(BenchtopRouting, InvalidInstalledNumberCountsAsTheFullBoard)
{
    for (const int installed : {0, 5, -1}) {
        handler.SetNumDevices(installed);
        select(2);
        EXPECT_EQ(handler.setTrgSrc(HaldeElec::Orvan::eCoupling_none), 0);
        for (const unsigned address : {0x20u, 0x20u, 0x24u}) {
            expected.open(address);
        }
        expected.set(0x20, kPortA, 0x01);
        expected.clear(0x20, kPortA, 0x02);
        EXPECT_TRUE(expect_trace(trace(), expected.take()));
    }
}

TEST_F(BenchtopRouting, CouplingAboveAllIsRefusedWithNoAccess)
{
    handler.SetNumDevices(4);
    select(1);
    for (const uint8_t couple : Bytes{5, 255}) {
        EXPECT_EQ(handler.setTrgSrc(couple), -1);
    }
    EXPECT_TRUE(trace().empty());
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(BenchtopRouting, CouplingOfAChannelOutsideOneToFourIsRefusedWithNoMessage)
{
    handler.SetNumDevices(4);
    for (const uint32_t channel : {0u, 5u, 9u}) {
        select(channel);
        EXPECT_EQ(handler.setTrgSrc(1), -1);
        EXPECT_TRUE(expect_trace(trace(), "i2c 0x20 open\ni2c 0x20 open\ni2c 0x24 open\n"));
    }
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(BenchtopRouting, CouplingFailsWhenAnyExpanderDoes)
{
    handler.SetNumDevices(4);
    size_t failures = 0;
    for (const uint8_t address : Bytes{0x20, 0x24}) {
        for (const bool absent : {true, false}) {
            const auto fault = sim_board::insert_fault(board->i2c(), address);
            absent ? fault->absent(true) : fault->not_acknowledging(true);
            select(1);
            EXPECT_EQ(handler.setTrgSrc(1), -1);
            EXPECT_EQ(logs.count(LOG_ERR, "setTrgSrc: failed to set trigger source for channel 1"),
                      ++failures);
            fault->absent(false);
            fault->not_acknowledging(false);
        }
    }
    EXPECT_EQ(logs.lines().size(), 4u);
}

// The switch of channel 2 uses the second handle on 0x20, its termination the first.
TEST_F(BenchtopRouting, CouplingFailsWithEitherHandleOnTheSameExpander)
{
    handler.SetNumDevices(4);
    select(2);
    const auto device = orvan_test::refuse_one(board->i2c(), 0x20, SIZE_MAX);
    for (const size_t refused : {0u, 1u, 2u, 3u, 4u, 5u}) {
        logs.clear();
        device->refuse_after(refused);
        EXPECT_EQ(handler.setTrgSrc(0), -1) << refused;
        EXPECT_EQ(logs.lines(), (std::vector<orvan_test::LogLine>{
                                    {LOG_ERR, "setTrgSrc: failed to set trigger source for channel 2"}}));
    }
    EXPECT_EQ(handler.setTrgSrc(0), 0);
}

TEST_F(BenchtopRouting, CouplingSetsTheTerminationAfterAFailedSwitch)
{
    handler.SetNumDevices(4);
    select(1);
    sim_board::insert_fault(board->i2c(), 0x24)->not_acknowledging(true);
    EXPECT_EQ(handler.setTrgSrc(0), -1);
    EXPECT_TRUE(expect_trace(trace(), R"(
        i2c 0x20 open
        i2c 0x20 open
        i2c 0x24 open
        i2c 0x24 [0x12] -> EREMOTEIO
        i2c 0x24 [0x12] = 0x00 -> EREMOTEIO
        i2c 0x20 [0x12] -> 0x5a
        i2c 0x20 [0x12] = 0x5a
    )"));
}

// ---- the SPI multiplexer

TEST_F(BenchtopRouting, SetUpDrivesTheAddressLinesToZeroBeforeItOpensThePort)
{
    EXPECT_EQ(handler.ConfigChannelSPI(0, 1), 0);
    EXPECT_TRUE(expect_trace(trace(), R"(
        pins setup
        pin 7 output
        pin 21 output
        pin 6 output
        pin 7 = 0
        pin 21 = 0
        pin 6 = 0
        spi open /dev/spidev0.1
        spi mode = 0
        spi mode -> 0
        spi bits = 8
        spi bits -> 8
        spi speed = 3000000
        spi speed -> 3000000
    )"));
}

struct Target {
    uint32_t channel;
    const char* lines;
    const char* answer;
};

class BenchtopMultiplexer : public BenchtopRouting, public testing::WithParamInterface<Target> {};
INSTANTIATE_TEST_SUITE_P(Channels, BenchtopMultiplexer,
                         testing::Values(Target{0, "1 1 1", "none"}, Target{1, "1 1 1", "none"},
                                         Target{3, "1 1 1", "none"}, Target{4, "0 0 1", "fan"},
                                         Target{5, "1 0 1", "eeprom"}, Target{6, "1 1 1", "none"},
                                         Target{0xffffffff, "1 1 1", "none"}));

TEST_P(BenchtopMultiplexer, SelectsTheTargetOfTheChannelAndSettlesBeforeTheMessage)
{
    const auto& [channel, lines, target] = GetParam();
    ASSERT_EQ(handler.ConfigChannelSPI(0, 1), 0);
    select(channel);
    trace();
    const uint8_t sent[] = {0x05, 0x00};
    uint8_t received[2] = {};
    EXPECT_EQ(handler.DataTransfer(sent, received, 2), 0);
    const std::string message =
        std::string("spi ") + target + (target[0] == 'e' ? ": 05 00 -> ff 00" : ": 05 00 -> ff ff");
    EXPECT_TRUE(
        expect_trace(trace(), text_of("pin 7 = %c\npin 21 = %c\npin 6 = %c\n", lines[0], lines[2], lines[4]) +
                                  "pin 11 = 0\ndelay 10\n" + message + "\npin 11 = 1\n"));
}

// ---- the object

TEST_F(BenchtopRouting, TheConstructorLogsItselfAndAccessesNoHardware)
{
    s_debug.clear();
    const HaldeElec::Orvan::OrvanConnBenchtop another;
    ASSERT_EQ(s_debug.size(), 1u);
    EXPECT_TRUE(s_debug[0].ends_with("]OrvanConnBenchtop::OrvanConnBenchtop constructor is start @@"))
        << s_debug[0];
    EXPECT_TRUE(trace().empty());
}

TEST_F(BenchtopRouting, TheDestructorClosesThePort)
{
    {
        HaldeElec::Orvan::OrvanConnBenchtop another;
        ASSERT_EQ(another.ConfigChannelSPI(0, 1), 0);
        trace();
    }
    EXPECT_TRUE(expect_trace(trace(), "spi close"));
}

TEST_F(BenchtopRouting, ConverterReturnsTheTextAtItsPointer)
{
    int characters[4] = {};
    std::snprintf(reinterpret_cast<char*>(characters), sizeof characters, "AM external");
    EXPECT_EQ(handler.converter(characters), "AM external");
}

} // namespace
