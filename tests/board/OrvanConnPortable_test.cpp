#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <wiringPi.h>

#include "board/current_board.h"
#include "board/expect_trace.h"
#include "orvan_sdk/OrvanDebug.h"
#include "orvan_sdk/Portable/OrvanConnPortable.h"

using namespace HaldeElec::Orvan;
using HaldeElec::OrvanDebug;
using sim_board::expect_trace;

namespace {

std::vector<std::string> g_debug;

class PortableBus : public testing::Test {
protected:
    void SetUp() override
    {
        OrvanDebug::SetLogMode(2);
        OrvanDebug::RegisterCallback([](const char* line) { g_debug.emplace_back(line); });
        g_debug.clear();
        handler.emplace();
    }
    std::vector<std::string> trace() { return board->trace().take(); }

    sim_board::InstalledBoard board{sim_board::kPortableWiring};
    std::optional<OrvanConnPortable> handler;
};

TEST_F(PortableBus, TheConstructorLogsItselfAndAccessesNoHardware)
{
    ASSERT_EQ(g_debug.size(), 1u);
    EXPECT_TRUE(g_debug[0].ends_with("]OrvanConnPortable::OrvanConnPortable constructor is start @@"))
        << g_debug[0];
    EXPECT_TRUE(trace().empty());
    EXPECT_FALSE(handler->Initialized());
    EXPECT_FALSE(handler->Connected());
}

TEST_F(PortableBus, TheSetUpLeavesThePinsToTheDevice)
{
    EXPECT_EQ(handler->ConfigChannelSPI(0, 1), 0);
    EXPECT_TRUE(expect_trace(trace(), R"(
        pins setup
        spi open /dev/spidev0.1
        spi mode = 0
        spi mode -> 0
        spi bits = 8
        spi bits -> 8
        spi speed = 3000000
        spi speed -> 3000000
    )"));
}

TEST_F(PortableBus, AMessageOfAnyChannelIsBracketedByTheSelectPinsWithNoWait)
{
    ASSERT_EQ(handler->ConfigChannelSPI(0, 1), 0);
    for (const int pin : {11, 27, 16}) {
        pinMode(pin, OUTPUT);
    }
    for (uint32_t channel : {0u, 1u, 5u, 77u}) {
        handler->SetCommChannel(channel);
        trace();
        const uint8_t sent[] = {0x05, 0x00};
        uint8_t received[2] = {};
        EXPECT_EQ(handler->DataTransfer(sent, received, 2), 0);
        EXPECT_TRUE(expect_trace(trace(), R"(
            pin 11 = 1
            pin 27 = 1
            pin 16 = 0
            spi eeprom: 05 00 -> ff 00
            pin 11 = 1
            pin 27 = 1
            pin 16 = 1
        )"));
    }
}

TEST_F(PortableBus, RoutingIsInheritedAndTheImpedanceIsStored)
{
    uint32_t channel = 1;
    handler->SetCommChannel(channel);
    uint32_t impedance = 1;
    EXPECT_EQ(handler->setTrgImp(impedance), 0);
    impedance = 0;
    EXPECT_EQ(handler->getTrgImp(impedance), 0);
    EXPECT_EQ(impedance, 1u);
    EXPECT_EQ(handler->setTrgSrc(eCoupling_ch2), 0);
    EXPECT_EQ(handler->SetRFOutput(1), 0);
    EXPECT_EQ(handler->setModSrc(1, 1), 0);
    EXPECT_TRUE(trace().empty());
}

TEST_F(PortableBus, TheDestructorClosesThePort)
{
    ASSERT_EQ(handler->ConfigChannelSPI(0, 1), 0);
    trace();
    g_debug.clear();
    handler.reset();
    EXPECT_TRUE(expect_trace(trace(), "spi close"));
    EXPECT_TRUE(g_debug.empty());
}

TEST_F(PortableBus, WithoutAPortTheDestructorWritesToTheDebugLog)
{
    g_debug.clear();
    handler.reset();
    ASSERT_EQ(g_debug.size(), 1u);
    EXPECT_TRUE(g_debug[0].ends_with("]Error - Could not close SPI device")) << g_debug[0];
}

} // namespace
