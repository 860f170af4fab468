#include <array>
#include <cerrno>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <wiringPi.h>

#include "board/expect_trace.h"
#include "board/spi_bus.h"

namespace sim_board {
namespace {

using Bytes = std::vector<uint8_t>;

/** Answers each byte with its complement and keeps what happened: '[' and ']' for chip select. */
struct InvertingDevice : SpiDevice {
    std::string events;
    bool follows(uint8_t mode, uint32_t hertz) const override { return mode == 0 && hertz <= 5'000'000; }
    void select() override { events += '['; }
    void deselect() override { events += ']'; }
    uint8_t exchange(uint8_t sent) override
    {
        events += 'x';
        return static_cast<uint8_t>(~sent);
    }
};

spi_ioc_transfer transfer_of(const Bytes& sent, Bytes& received)
{
    spi_ioc_transfer transfer{};
    transfer.tx_buf = reinterpret_cast<uintptr_t>(sent.data());
    transfer.rx_buf = reinterpret_cast<uintptr_t>(received.data());
    transfer.len = static_cast<uint32_t>(sent.size());
    return transfer;
}

struct SpiBusTest : testing::Test {
    Trace trace;
    Clock clock{Clock::Mode::kManual};
    Gpio gpio{trace};
    SpiBus bus{kBenchtopWiring, gpio, clock, trace};
    std::shared_ptr<InvertingDevice> device = std::make_shared<InvertingDevice>();
    int fd = -1;

    void SetUp() override
    {
        bus.attach("eeprom", device);
        gpio.setup();
        for (const int pin : {11, 7, 21, 6}) {
            gpio.pin_mode(pin, OUTPUT);
        }
        select(1, 0, 1, 0);
        fd = bus.open("/dev/spidev0.1", O_RDWR);
        ASSERT_GE(fd, 0);
        trace.clear();
    }
    void TearDown() override
    {
        if (fd >= 0) {
            EXPECT_EQ(bus.close(fd), 0);
        }
    }
    void select(int pin7, int pin21, int pin6, int pin11)
    {
        gpio.write(7, pin7);
        gpio.write(21, pin21);
        gpio.write(6, pin6);
        gpio.write(11, pin11);
        trace.clear();
    }
    int message(const Bytes& sent, Bytes& received)
    {
        received.assign(sent.size(), 0);
        spi_ioc_transfer transfer = transfer_of(sent, received);
        return bus.ioctl(fd, SPI_IOC_MESSAGE(1), &transfer);
    }
    template <typename T>
    int ioctl(unsigned long request, T value)
    {
        return bus.ioctl(fd, request, &value);
    }
    template <typename T>
    T read_back(unsigned long request)
    {
        T value{};
        EXPECT_EQ(bus.ioctl(fd, request, &value), 0);
        return value;
    }
};

TEST_F(SpiBusTest, AMessageIsFullDuplexAndReturnsItsLength)
{
    Bytes received;
    EXPECT_EQ(message({0x06, 0x00, 0xf0}, received), 3);
    EXPECT_EQ(received, (Bytes{0xf9, 0xff, 0x0f}));
    EXPECT_EQ(device->events, "[xxx]");
    EXPECT_TRUE(expect_trace(trace.lines(), "spi eeprom: 06 00 f0 -> f9 ff 0f"));
}

TEST_F(SpiBusTest, ModeWordSizeAndClockReadBackAsWritten)
{
    EXPECT_EQ(ioctl<uint8_t>(SPI_IOC_WR_MODE, 3), 0);
    EXPECT_EQ(ioctl<uint8_t>(SPI_IOC_WR_BITS_PER_WORD, 8), 0);
    EXPECT_EQ(ioctl<uint32_t>(SPI_IOC_WR_MAX_SPEED_HZ, 3'000'000), 0);
    EXPECT_EQ(read_back<uint8_t>(SPI_IOC_RD_MODE), 3);
    EXPECT_EQ(read_back<uint8_t>(SPI_IOC_RD_BITS_PER_WORD), 8);
    EXPECT_EQ(read_back<uint32_t>(SPI_IOC_RD_MAX_SPEED_HZ), 3'000'000u);
    EXPECT_TRUE(expect_trace(trace.lines(), R"(
        spi mode = 3
        spi bits = 8
        spi speed = 3000000
        spi mode -> 3
        spi bits -> 8
        spi speed -> 3000000)"));
}

TEST_F(SpiBusTest, SettingsBelongToTheNodeAndOutliveItsDescriptor)
{
    ioctl<uint32_t>(SPI_IOC_WR_MAX_SPEED_HZ, 3'000'000);
    bus.close(fd);
    fd = bus.open("/dev/spidev0.1", O_RDWR);
    EXPECT_EQ(read_back<uint32_t>(SPI_IOC_RD_MAX_SPEED_HZ), 3'000'000u);
    const int other = bus.open("/dev/spidev0.0", O_RDWR);
    uint32_t hertz = 0;
    bus.ioctl(other, SPI_IOC_RD_MAX_SPEED_HZ, &hertz);
    EXPECT_EQ(hertz, 500'000u);
    bus.close(other);
}

TEST_F(SpiBusTest, AWordSizeOfZeroMeansEight)
{
    EXPECT_EQ(ioctl<uint8_t>(SPI_IOC_WR_BITS_PER_WORD, 0), 0);
    EXPECT_EQ(read_back<uint8_t>(SPI_IOC_RD_BITS_PER_WORD), 8);
}

TEST_F(SpiBusTest, SettingsThatTheControllerDoesNotHaveAreRefused)
{
    EXPECT_EQ(ioctl<uint8_t>(SPI_IOC_WR_MODE, 4), -1);
    EXPECT_EQ(ioctl<uint8_t>(SPI_IOC_WR_BITS_PER_WORD, 16), -1);
    EXPECT_EQ(ioctl<uint32_t>(SPI_IOC_WR_MAX_SPEED_HZ, 0), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(ioctl<uint32_t>(0x12345678, 0), -1);
    EXPECT_EQ(errno, ENOTTY);
}

TEST_F(SpiBusTest, EachRequestCanBeRefused)
{
    for (const unsigned long request :
         {static_cast<unsigned long>(SPI_IOC_WR_MODE), static_cast<unsigned long>(SPI_IOC_RD_MODE),
          static_cast<unsigned long>(SPI_IOC_WR_BITS_PER_WORD),
          static_cast<unsigned long>(SPI_IOC_RD_BITS_PER_WORD),
          static_cast<unsigned long>(SPI_IOC_WR_MAX_SPEED_HZ),
          static_cast<unsigned long>(SPI_IOC_RD_MAX_SPEED_HZ)}) {
        constexpr uint32_t kValid = 0x100; // 0 as mode and word size, 256 Hz as clock
        bus.refuse_request(request, EIO);
        EXPECT_EQ(ioctl<uint32_t>(request, kValid), -1);
        EXPECT_EQ(errno, EIO);
        bus.refuse_request(request, 0);
        EXPECT_EQ(ioctl<uint32_t>(request, kValid), 0);
    }
}

TEST_F(SpiBusTest, ARefusedMessageReachesNoChip)
{
    bus.refuse_request(SPI_IOC_MESSAGE(0), ETIMEDOUT);
    Bytes received;
    EXPECT_EQ(message({1, 2}, received), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_EQ(device->events, "");
    EXPECT_EQ(trace.lines().back(), "spi message -> ETIMEDOUT");
}

TEST_F(SpiBusTest, TransfersOfOneMessageKeepTheChipSelected)
{
    Bytes one;
    Bytes two;
    one.resize(1);
    two.resize(2);
    const Bytes sent_one{0x05};
    const Bytes sent_two{0x00, 0x01};
    std::array transfers{transfer_of(sent_one, one), transfer_of(sent_two, two)};
    EXPECT_EQ(bus.ioctl(fd, SPI_IOC_MESSAGE(2), transfers.data()), 3);
    EXPECT_EQ(device->events, "[xxx]");
    EXPECT_TRUE(expect_trace(trace.lines(), R"(
        spi eeprom: 05 -> fa +
        spi eeprom: 00 01 -> ff fe)"));
}

TEST_F(SpiBusTest, CsChangeReleasesChipSelectBetweenTransfersAndTheMessageEndsSelected)
{
    Bytes received(1);
    const Bytes sent{0x05};
    std::array transfers{transfer_of(sent, received), transfer_of(sent, received)};
    transfers[0].cs_change = 1;
    transfers[1].cs_change = 1;
    EXPECT_EQ(bus.ioctl(fd, SPI_IOC_MESSAGE(2), transfers.data()), 2);
    EXPECT_EQ(device->events, "[x][x]");
}

TEST_F(SpiBusTest, ADelayAfterATransferIsAWaitOfTheClock)
{
    Bytes received(1);
    const Bytes sent{0x05};
    spi_ioc_transfer transfer = transfer_of(sent, received);
    transfer.delay_usecs = 25;
    SelfAdvancing self(clock);
    EXPECT_EQ(bus.ioctl(fd, SPI_IOC_MESSAGE(1), &transfer), 1);
    EXPECT_EQ(clock.now_us(), 25u);
    EXPECT_EQ(trace.lines().back(), "spi delay 25");
}

TEST_F(SpiBusTest, WithoutASendBufferZeroesAreSentAndTheReceiveBufferIsOptional)
{
    Bytes received(2);
    const Bytes sent{0x0f, 0xf0};
    spi_ioc_transfer only_receive = transfer_of(sent, received);
    only_receive.tx_buf = 0;
    EXPECT_EQ(bus.ioctl(fd, SPI_IOC_MESSAGE(1), &only_receive), 2);
    EXPECT_EQ(received, (Bytes{0xff, 0xff}));
    spi_ioc_transfer only_send = transfer_of(sent, received);
    only_send.rx_buf = 0;
    EXPECT_EQ(bus.ioctl(fd, SPI_IOC_MESSAGE(1), &only_send), 2);
    EXPECT_TRUE(expect_trace(trace.lines(), R"(
        spi eeprom: 00 00 -> ff ff
        spi eeprom: 0f f0)"));
}

TEST_F(SpiBusTest, AnEmptyMessageIsNoError)
{
    EXPECT_EQ(bus.ioctl(fd, SPI_IOC_MESSAGE(0), nullptr), 0);
}

TEST_F(SpiBusTest, AMessageHasALimit)
{
    Bytes received;
    EXPECT_EQ(message(Bytes(SpiBus::kMessageLimit, 0), received), static_cast<int>(SpiBus::kMessageLimit));
    EXPECT_EQ(message(Bytes(SpiBus::kMessageLimit + 1, 0), received), -1);
    EXPECT_EQ(errno, EMSGSIZE);
}

TEST_F(SpiBusTest, ATransferWithAnotherWordSizeIsRefused)
{
    Bytes received(1);
    const Bytes sent{0x05};
    spi_ioc_transfer transfer = transfer_of(sent, received);
    transfer.bits_per_word = 9;
    EXPECT_EQ(bus.ioctl(fd, SPI_IOC_MESSAGE(1), &transfer), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(device->events, "");
}

TEST_F(SpiBusTest, AChipThatIsTooSlowIgnoresTheMessage)
{
    ioctl<uint8_t>(SPI_IOC_WR_MODE, 1);
    Bytes received;
    EXPECT_EQ(message({0x00}, received), 1);
    EXPECT_EQ(received, Bytes{0xff});
    ioctl<uint8_t>(SPI_IOC_WR_MODE, 0);
    ioctl<uint32_t>(SPI_IOC_WR_MAX_SPEED_HZ, 5'000'001);
    EXPECT_EQ(message({0x00}, received), 1);
    EXPECT_EQ(device->events, "");
    const Bytes sent{0x0f};
    spi_ioc_transfer transfer = transfer_of(sent, received);
    transfer.speed_hz = 5'000'000; // the transfer's own clock counts
    bus.ioctl(fd, SPI_IOC_MESSAGE(1), &transfer);
    EXPECT_EQ(device->events, "[x]");
}

TEST_F(SpiBusTest, OnlyTheLinesOfItsNumberSelectAChip)
{
    for (int lines = 0; lines < 16; ++lines) {
        device->events.clear();
        select(lines & 1, lines >> 1 & 1, lines >> 2 & 1, lines >> 3 & 1);
        Bytes received;
        message({0x0f}, received);
        const bool number5 = lines == 0b0101; // enabled (pin 11 low), pins 7 and 6 high, pin 21 low
        EXPECT_EQ(device->events, number5 ? "[x]" : "") << lines;
        const bool number4 = lines == 0b0100;
        EXPECT_EQ(trace.lines().back(), number5   ? "spi eeprom: 0f -> f0"
                                        : number4 ? "spi fan: 0f -> ff"
                                                  : "spi none: 0f -> ff")
            << lines;
    }
}

TEST_F(SpiBusTest, AnotherNodeSelectsNoneOfThisNodesChips)
{
    const int other = bus.open("/dev/spidev0.0", O_RDWR);
    Bytes received(1);
    const Bytes sent{0x00};
    spi_ioc_transfer transfer = transfer_of(sent, received);
    EXPECT_EQ(bus.ioctl(other, SPI_IOC_MESSAGE(1), &transfer), 1);
    EXPECT_EQ(received[0], 0xff);
    EXPECT_EQ(device->events, "");
    bus.close(other);
}

TEST_F(SpiBusTest, AMissingNodeCannotBeOpened)
{
    EXPECT_EQ(bus.open("/dev/spidev1.0", O_RDWR), -1);
    EXPECT_EQ(errno, ENOENT);
    bus.set_node_present("/dev/spidev0.1", false);
    EXPECT_EQ(bus.open("/dev/spidev0.1", O_RDWR), -1);
    EXPECT_EQ(trace.lines().back(), "spi open /dev/spidev0.1 -> ENOENT");
    bus.set_node_present("/dev/spidev1.0", true);
    const int other = bus.open("/dev/spidev1.0", O_RDWR);
    EXPECT_GE(other, 0);
    bus.close(other);
}

TEST_F(SpiBusTest, AClosedOrForeignDescriptorIsRefused)
{
    bus.close(fd);
    EXPECT_EQ(bus.close(fd), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(ioctl<uint8_t>(SPI_IOC_WR_MODE, 0), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(bus.close(STDIN_FILENO), -1);
    EXPECT_EQ(errno, EBADF);
    fd = -1;
}

TEST_F(SpiBusTest, AnUnknownTargetIsRefused)
{
    EXPECT_THROW(bus.attach("nothing", device), std::out_of_range);
}

TEST_F(SpiBusTest, MessagesOfTwoThreadsDoNotMix)
{
    const auto work = [this] {
        for (int i = 0; i < 200; ++i) {
            Bytes received(4);
            const Bytes sent{1, 2, 3, 4};
            spi_ioc_transfer transfer = transfer_of(sent, received);
            bus.ioctl(fd, SPI_IOC_MESSAGE(1), &transfer);
        }
    };
    std::thread other(work);
    work();
    other.join();
    for (size_t i = 0; i < device->events.size(); i += 6) {
        ASSERT_EQ(device->events.substr(i, 6), "[xxxx]");
    }
    EXPECT_EQ(device->events.size(), 2400u);
}

} // namespace
} // namespace sim_board
