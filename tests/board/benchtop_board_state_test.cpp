// The effect of the benchtop's classes on the simulated board.
#include <sstream>

#include "benchtop_routing_bench.h"
#include "board/board_state.h"
#include "orvan_sdk/Benchtop/OrvanBenchtopDevice.h"

using namespace board_test;
using namespace HaldeElec::Orvan;

namespace {

/** The value of a name in the board's state. */
std::string state_of(sim_board::Board& board, const std::string& name)
{
    std::istringstream lines(sim_board::board_state(board));
    for (std::string line; std::getline(lines, line);) {
        if (line.substr(0, line.find("  ")) == name) {
            return line.substr(line.find_first_not_of(' ', name.size()));
        }
    }
    return "(no such line)";
}

// The board's slot by installed row and channel; only installed channels.
constexpr int kSlotOf[3][4] = {{4, 0, 0, 0}, {3, 4, 0, 0}, {1, 2, 3, 4}};

/** The routing of an instrument with `channels` channels, on expanders whose pins are all outputs. */
class BenchtopBoardState : public BenchtopInstalled {
protected:
    uint32_t channels() const { return static_cast<uint32_t>(GetParam()); }
    std::string slot(uint32_t channel) const { return "slot " + std::to_string(kSlotOf[row()][channel - 1]); }
    std::string state(const std::string& name) { return state_of(*board, name); }
};
INSTANTIATE_TEST_SUITE_P(Channels, BenchtopBoardState, testing::Values(1, 2, 3, 4));

TEST_P(BenchtopBoardState, AnRfOutputIsSwitchedInItsChannelsSlot)
{
    for (uint32_t channel = 1; channel <= channels(); ++channel) {
        select(channel);
        for (const int on : {1, 0, 1}) {
            handler.SetRFOutput(on);
            EXPECT_EQ(state("RF output, " + slot(channel)), on != 0 ? "on" : "off") << channel;
        }
    }
}

TEST_P(BenchtopBoardState, ATerminationIsSwitchedAtItsChannel)
{
    for (uint32_t channel = 1; channel <= channels(); ++channel) {
        select(channel);
        set_impedance(1);
        EXPECT_EQ(state("trigger termination, channel " + std::to_string(channel)), "10 kOhm");
        set_impedance(0);
        EXPECT_EQ(state("trigger termination, channel " + std::to_string(channel)), "50 Ohm");
    }
}

TEST_P(BenchtopBoardState, AModulationIsRoutedToItsChannelsSlot)
{
    static constexpr const char* kExternal[] = {"external AM", "external FM", "external pulse"};
    for (uint32_t channel = 1; channel <= channels(); ++channel) {
        select(channel);
        for (uint32_t modulation = 0; modulation < 3; ++modulation) {
            for (const uint32_t on : {1u, 0u, 1u}) {
                EXPECT_EQ(handler.setModSrc(modulation, on), 0);
                const std::string routed = state("modulation, " + slot(channel));
                EXPECT_EQ(routed.substr(0, routed.find(':')), on != 0 ? kExternal[modulation] : "internal");
            }
        }
    }
}

TEST_F(BenchtopRouting, ACouplingShowsAtTheTriggerSwitches)
{
    handler.SetNumDevices(4);
    for (const uint32_t channel : {1u, 2u, 3u, 4u}) {
        select(channel);
        EXPECT_EQ(handler.setTrgSrc(eCoupling_ch3), 0);
    }
    EXPECT_EQ(state_of(*board, "trigger switch, slot 1"), "coupled");
    EXPECT_EQ(state_of(*board, "trigger switch, slot 3"), "coupled");
    EXPECT_EQ(state_of(*board, "trigger switch, slot 4"), "uncoupled");
}

TEST_F(BenchtopRouting, TheFanDriveIsTargetFourOfTheMultiplexer)
{
    ASSERT_EQ(handler.ConfigChannelSPI(0, 1), 0);
    select(4);
    uint8_t sent[3] = {0, 0, 0x3f};
    uint8_t received[3] = {};
    EXPECT_EQ(handler.DataTransfer(sent, received, 3), 0);
    EXPECT_EQ(state_of(*board, "fan"), "75 % of full speed, drive value 0x3f");
    handler.SpiClosePort();
}

/** A board as the start of the instrument leaves it, with the button's lines of port B as inputs. */
class BenchtopStarted : public testing::Test {
protected:
    void SetUp() override
    {
        board->spi().set_node_present("/dev/spidev0.1", false); // the start ends at its bus
        OrvanBenchtopDevice device("/dev/null", 4);
        ASSERT_TRUE(device.InitHW());
        handler.SetNumDevices(4);
    }
    std::string state(const std::string& name) { return state_of(*board, name); }

    sim_board::InstalledBoard board{sim_board::kBenchtopWiring};
    sim_board::SelfAdvancing self{board->clock()};
    orvan_test::LogCapture logs;
    OrvanConnBenchtop handler;
};

TEST_F(BenchtopStarted, EachSlotsModulationIsStillRouted)
{
    static constexpr const char* kExternal[] = {"external AM", "external FM", "external pulse"};
    for (uint32_t channel = 1; channel <= 4; ++channel) {
        handler.SetCommChannel(channel);
        for (uint32_t modulation = 0; modulation < 3; ++modulation) {
            for (const uint32_t on : {1u, 0u}) {
                EXPECT_EQ(handler.setModSrc(modulation, on), 0);
                const std::string routed = state("modulation, slot " + std::to_string(channel));
                EXPECT_EQ(routed.substr(0, routed.find(':')), on != 0 ? kExternal[modulation] : "internal");
            }
        }
    }
}

TEST_F(BenchtopStarted, TheOutputOfSlotFourIsSetButItsPinIsAnInput)
{
    uint32_t channel = 4;
    handler.SetCommChannel(channel);
    handler.SetRFOutput(1);
    EXPECT_EQ(state("RF output, slot 4"), "on (its pin is an input)");
    channel = 1;
    handler.SetCommChannel(channel);
    handler.SetRFOutput(1);
    EXPECT_EQ(state("RF output, slot 1"), "on");
}

} // namespace
