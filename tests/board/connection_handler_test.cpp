#include <cerrno>
#include <ostream>
#include <string>

#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <syslog.h>
#include <unistd.h>

#include "board_bench.h"
#include "orvan_sdk/OrvanDebug.h"
#include "support/log_capture.h"

using namespace board_test;
using namespace HaldeElec::Orvan;
using HaldeElec::OrvanDebug;
using orvan_test::LogCapture;
using orvan_test::LogLine;
using sim_board::expect_trace;

namespace {

std::vector<std::string> g_debug;

class ConnectionHandler : public BoardTest {
protected:
    void SetUp() override
    {
        g_debug.clear();
        OrvanDebug::SetLogMode(2);
        OrvanDebug::RegisterCallback([](const char* line) { g_debug.emplace_back(line); });
    }

    int transfer(size_t length)
    {
        Bytes sent(MAX_SPI_BUF_LEN + 1, 0x05);
        Bytes received(MAX_SPI_BUF_LEN + 1, 0);
        return handler.DataTransfer(sent.data(), received.data(), length);
    }

    LogCapture logs;
};

TEST_F(ConnectionHandler, BeginsWithNothingSetUp)
{
    EXPECT_FALSE(handler.Initialized());
    EXPECT_FALSE(handler.Connected());
    uint32_t channel = 7;
    EXPECT_EQ(handler.GetCommChannel(channel), 0);
    EXPECT_EQ(channel, 0u);
    EXPECT_EQ(handler.devices(), 1);
    EXPECT_EQ(handler.mode() + handler.bits() + handler.speed(), 0u);
    EXPECT_EQ(handler.slot(), -1);
    for (const int impedance : handler.impedances()) {
        EXPECT_EQ(impedance, 0);
    }
}

TEST_F(ConnectionHandler, SetsUpPinsAndThenThePort)
{
    EXPECT_EQ(handler.ConfigChannelSPI(0, 1), 0);
    EXPECT_TRUE(handler.Initialized());
    EXPECT_TRUE(handler.Connected());
    EXPECT_EQ(handler.mode(), 0u);
    EXPECT_EQ(handler.bits(), 8u);
    EXPECT_EQ(handler.speed(), 3'000'000u);
    EXPECT_TRUE(expect_trace(trace(), R"(
        pins setup
        pin 11 output
        pin 7 output
        pin 21 output
        pin 6 output
        pin 11 = 1
        spi open /dev/spidev0.1
        spi mode = 0
        spi mode -> 0
        spi bits = 8
        spi bits -> 8
        spi speed = 3000000
        spi speed -> 3000000
    )"));
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(ConnectionHandler, EachFailingRequestEndsTheSetUpThere)
{
    const std::vector<unsigned long> requests = {SPI_IOC_WR_MODE,          SPI_IOC_RD_MODE,
                                                 SPI_IOC_WR_BITS_PER_WORD, SPI_IOC_RD_BITS_PER_WORD,
                                                 SPI_IOC_WR_MAX_SPEED_HZ,  SPI_IOC_RD_MAX_SPEED_HZ};
    for (size_t failing = 0; failing < requests.size(); ++failing) {
        MuxHandler fresh;
        board->spi().refuse_request(requests[failing], EIO);
        EXPECT_EQ(fresh.ConfigChannelSPI(0, 1), -1);
        EXPECT_FALSE(fresh.Initialized());
        EXPECT_FALSE(fresh.Connected());
        const auto lines = board->trace().lines_with({"spi "});
        EXPECT_EQ(lines.size(), failing + 2) << "the open, what went well, and what failed";
        EXPECT_NE(lines.back().find("EIO"), std::string::npos) << lines.back();
        board->spi().refuse_request(requests[failing], 0);
        EXPECT_EQ(fresh.SpiClosePort(), 0);
        board->trace().clear();
    }
    EXPECT_TRUE(logs.lines().empty()) << "nothing is logged";
    EXPECT_TRUE(g_debug.empty());
}

TEST_F(ConnectionHandler, AMissingNodeLeavesTheNegativeDescriptorInTheSlot)
{
    board->spi().set_node_present("/dev/spidev0.1", false);
    EXPECT_EQ(handler.ConfigChannelSPI(0, 1), -1);
    EXPECT_FALSE(handler.Initialized());
    EXPECT_LT(handler.slot_value(), 0);
    EXPECT_EQ(board->trace().lines().back(), "spi open /dev/spidev0.1 -> ENOENT");
    EXPECT_EQ(transfer(2), -1);
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(ConnectionHandler, AnExceptionOfTheMultiplexerIsAFailure)
{
    handler.throw_in_configure = true;
    EXPECT_EQ(handler.ConfigChannelSPI(0, 1), -1);
    EXPECT_FALSE(handler.Initialized());
    EXPECT_TRUE(expect_trace(trace(), "pins setup"));
}

TEST_F(ConnectionHandler, BusAndSelectNameTheNodeAndTheBusAloneTheSlot)
{
    const struct {
        uint32_t bus, select;
        const char* node;
        int slot;
    } rows[] = {
        {0, 0, "/dev/spidev0.0", 1}, {0, 1, "/dev/spidev0.1", 1}, {0, 9, "/dev/spidev0.1", 1},
        {1, 0, "/dev/spidev1.0", 0}, {1, 1, "/dev/spidev1.1", 0}, {7, 7, "/dev/spidev1.1", 0},
    };
    for (const auto& row : rows) {
        board->spi().set_node_present(row.node, true);
        MuxHandler fresh;
        EXPECT_EQ(fresh.ConfigChannelSPI(row.bus, row.select), 0);
        EXPECT_EQ(fresh.slot(), row.slot) << row.node;
        EXPECT_EQ(board->trace().lines_with({"spi open"}),
                  (std::vector<std::string>{std::string("spi open ") + row.node}));
        board->trace().clear();
    }
}

TEST_F(ConnectionHandler, ATransferBeforeTheSetUpFailsAndTouchesNoPin)
{
    EXPECT_EQ(transfer(2), -1);
    EXPECT_TRUE(trace().empty());
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(ConnectionHandler, ATransferOfNoByteOrTooManyFailsAndTouchesNoPin)
{
    connect();
    EXPECT_EQ(transfer(0), -1);
    EXPECT_EQ(transfer(1041), -1);
    EXPECT_TRUE(trace().empty());
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(ConnectionHandler, ATransferOf1And1040BytesIsSent)
{
    EXPECT_EQ(MAX_SPI_BUF_LEN, 1040u);
    connect();
    EXPECT_EQ(transfer(1), 0);
    EXPECT_EQ(transfer(1040), 0);
    const auto lines = board->trace().lines_with({"spi "});
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "spi eeprom: 05 -> ff");
    EXPECT_NE(lines[1].find("1040 bytes"), std::string::npos) << lines[1];
}

TEST_F(ConnectionHandler, AMessageIsSelectedBeforeAndReleasedAfter)
{
    connect();
    EXPECT_EQ(transfer(2), 0);
    EXPECT_TRUE(expect_trace(trace(), R"(
        pin 7 = 1
        pin 21 = 0
        pin 6 = 1
        pin 11 = 0
        delay 10
        spi eeprom: 05 05 -> ff 00
        pin 11 = 1
    )"));
}

TEST_F(ConnectionHandler, AFailedMessageIsReleasedAndThenLogged)
{
    connect();
    board->spi().refuse_request(SPI_IOC_MESSAGE(0), EIO);
    EXPECT_EQ(transfer(2), -1);
    EXPECT_EQ(board->gpio().level(11), 1);
    EXPECT_EQ(board->trace().lines().back(), "pin 11 = 1");
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_INFO, "sendDataBySPI - error : -1"}}));
    board->spi().refuse_request(SPI_IOC_MESSAGE(0), 0);
    EXPECT_EQ(transfer(2), 0) << "the handler still works";
}

/** Records the mode and clock of its messages. */
class Listener : public sim_board::SpiDevice {
public:
    bool follows(uint8_t mode, uint32_t hertz) const override
    {
        seen_mode = mode;
        seen_hertz = hertz;
        return true;
    }
    uint8_t exchange(uint8_t sent) override { return static_cast<uint8_t>(~sent); }

    mutable int seen_mode = -1;
    mutable uint32_t seen_hertz = 0;
};

TEST_F(ConnectionHandler, MessagesGoInMode0At3MegahertzInBothDirections)
{
    connect();
    const auto chip = std::make_shared<Listener>();
    board->spi().attach("fan", chip);
    uint32_t channel = 4;
    handler.SetCommChannel(channel);
    const Bytes sent = counting(5);
    Bytes received(6, 0xee);
    EXPECT_EQ(handler.DataTransfer(sent.data(), received.data(), 5), 0);
    EXPECT_EQ(received, (Bytes{0xfe, 0xfd, 0xfc, 0xfb, 0xfa, 0xee}));
    EXPECT_EQ(chip->seen_mode, 0);
    EXPECT_EQ(chip->seen_hertz, 3'000'000u);
}

TEST_F(ConnectionHandler, TheChannelIsStoredUnchanged)
{
    for (uint32_t value : {1u, 5u, 0u, 4000000000u}) {
        uint32_t channel = value;
        EXPECT_EQ(handler.SetCommChannel(channel), 0);
        channel = 77;
        EXPECT_EQ(handler.GetCommChannel(channel), 0);
        EXPECT_EQ(channel, value);
    }
}

TEST_F(ConnectionHandler, ClosingThePortClosesItsDescriptor)
{
    connect();
    const int fd = handler.slot_value();
    EXPECT_EQ(handler.SpiClosePort(), 0);
    EXPECT_TRUE(expect_trace(trace(), "spi close"));
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    EXPECT_TRUE(g_debug.empty());
}

TEST_F(ConnectionHandler, AFailedCloseIsLoggedInTheDebugLog)
{
    connect();
    ::close(handler.slot_value());
    EXPECT_EQ(handler.SpiClosePort(), -1);
    ASSERT_EQ(g_debug.size(), 1u);
    EXPECT_TRUE(g_debug[0].ends_with("]Error - Could not close SPI device")) << g_debug[0];
}

TEST_F(ConnectionHandler, ClosingAPortThatNeverOpenedAlsoFails)
{
    EXPECT_EQ(handler.SpiClosePort(), -1);
    EXPECT_EQ(g_debug.size(), 1u);
}

TEST_F(ConnectionHandler, TheTriggerImpedanceIsKeptForEachChannel)
{
    for (uint32_t channel = 1; channel <= 16; ++channel) {
        handler.SetCommChannel(channel);
        uint32_t impedance = 100 + channel;
        EXPECT_EQ(handler.setTrgImp(impedance), 0);
    }
    for (uint32_t channel = 1; channel <= 16; ++channel) {
        handler.SetCommChannel(channel);
        uint32_t impedance = 0;
        EXPECT_EQ(handler.getTrgImp(impedance), 0);
        EXPECT_EQ(impedance, 100 + channel);
        EXPECT_EQ(handler.impedances()[channel - 1], static_cast<int>(100 + channel));
    }
}

TEST_F(ConnectionHandler, RoutingHooksDoNothing)
{
    EXPECT_EQ(handler.setTrgSrc(eCoupling_all), 0);
    EXPECT_EQ(handler.SetRFOutput(1), 0);
    EXPECT_EQ(handler.setModSrc(2, 1), 0);
    EXPECT_TRUE(trace().empty());
}

TEST_F(ConnectionHandler, TheNumberOfDevicesIsKept)
{
    handler.SetNumDevices(4);
    EXPECT_EQ(handler.devices(), 4);
}

TEST_F(ConnectionHandler, CouplingNumbers)
{
    EXPECT_EQ(eCoupling_none, 0);
    EXPECT_EQ(eCoupling_ch2, 1);
    EXPECT_EQ(eCoupling_ch3, 2);
    EXPECT_EQ(eCoupling_ch4, 3);
    EXPECT_EQ(eCoupling_all, 4);
}

TEST_F(ConnectionHandler, TheBusLockIsTheCallers)
{
    connect();
    const std::lock_guard lock(handler.mtx);
    EXPECT_EQ(transfer(2), 0) << "a transfer takes no lock of its own";
}

TEST_F(ConnectionHandler, WhatIsReadBackReplacesWhatWasRequested)
{
    // No word size selects the port's; no clock is refused, and is checked after it.
    EXPECT_EQ(handler.SpiOpenPort(0, 1), -1);
    EXPECT_EQ(handler.bits(), 8u);
    EXPECT_TRUE(expect_trace(trace(), R"(
        spi open /dev/spidev0.1
        spi mode = 0
        spi mode -> 0
        spi bits = 0
        spi bits -> 8
        spi speed = 0 -> EINVAL
    )"));
    EXPECT_FALSE(handler.Initialized());
    EXPECT_EQ(handler.SpiClosePort(), 0);
}

TEST_F(ConnectionHandler, AMessageBringsItsOwnClock)
{
    connect();
    const auto chip = std::make_shared<Listener>();
    board->spi().attach("fan", chip);
    uint32_t channel = 4;
    handler.SetCommChannel(channel);
    uint32_t slower = 500'000; // of the node, as another user may have left it
    ASSERT_EQ(hw_spi_ioctl(handler.slot_value(), SPI_IOC_WR_MAX_SPEED_HZ, &slower), 0);
    const Bytes sent = counting(2);
    Bytes received(2);
    EXPECT_EQ(handler.DataTransfer(sent.data(), received.data(), 2), 0);
    EXPECT_EQ(chip->seen_hertz, 3'000'000u);
}

TEST_F(ConnectionHandler, AMessageBringsItsOwnWordSize)
{
    connect();
    handler.set_bits(9); // which the port refuses; 0 would select the port's
    EXPECT_EQ(transfer(2), -1);
    EXPECT_TRUE(expect_trace(messages(), "spi message -> EINVAL"));
    handler.set_bits(8);
    EXPECT_EQ(transfer(2), 0);
}

TEST_F(ConnectionHandler, ATransferNeedsBothFlags)
{
    struct Flags : MuxHandler {
        void set(bool is_connected, bool is_initialized)
        {
            connected = is_connected;
            initialized = is_initialized;
        }
    };
    Flags half;
    ASSERT_EQ(half.ConfigChannelSPI(0, 1), 0);
    trace();
    const uint8_t sent = 5;
    uint8_t received = 0;
    for (const bool is_connected : {true, false}) {
        half.set(is_connected, !is_connected);
        EXPECT_EQ(half.DataTransfer(&sent, &received, 1), -1);
    }
    EXPECT_TRUE(trace().empty());
    half.set(true, true); // its destructor closes the port
}

} // namespace
