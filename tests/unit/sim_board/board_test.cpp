// The wiring of the platforms, and the hardware functions on the current board.

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <ostream>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <wiringPi.h>
#include <wiringPiI2C.h>

#include "board/current_board.h"
#include "board/expect_trace.h"
#include "board/faulty_spi_device.h"
#include "hw/hw.h"

namespace sim_board {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes spi(int fd, Bytes sent)
{
    Bytes received(sent.size());
    spi_ioc_transfer transfer{};
    transfer.tx_buf = reinterpret_cast<uintptr_t>(sent.data());
    transfer.rx_buf = reinterpret_cast<uintptr_t>(received.data());
    transfer.len = static_cast<uint32_t>(sent.size());
    EXPECT_EQ(hw_spi_ioctl(fd, SPI_IOC_MESSAGE(1), &transfer), static_cast<int>(sent.size()));
    return received;
}

TEST(Seam, AllAccessesReachTheCurrentBoardAndAreRecorded)
{
    InstalledBoard board(kPortableWiring);
    SelfAdvancing self(board->clock());

    EXPECT_EQ(wiringPiSetup(), 0);
    for (const int pin : {26, 27, 16}) {
        pinMode(pin, OUTPUT);
    }
    digitalWrite(26, HIGH);
    EXPECT_EQ(digitalRead(22), HIGH);
    hw_delay_us(20000);

    const int i2c = wiringPiI2CSetup(0x20);
    ASSERT_GT(i2c, 0);
    EXPECT_EQ(wiringPiI2CWriteReg8(i2c, 0x00, 0x03), 0);
    EXPECT_EQ(wiringPiI2CReadReg8(i2c, 0x00), 0x03);
    EXPECT_EQ(wiringPiI2CWriteReg16(i2c, 0x14, 0x0580), 0);
    EXPECT_EQ(wiringPiI2CReadReg16(i2c, 0x14), 0x0580);
    EXPECT_EQ(wiringPiI2CWrite(i2c, 0x01), 0);
    EXPECT_EQ(wiringPiI2CRead(i2c), 0xff);
    EXPECT_EQ(close(i2c), 0);

    const int fd = hw_spi_open("/dev/spidev0.1", O_RDWR);
    ASSERT_GE(fd, 0);
    uint8_t mode = 0;
    EXPECT_EQ(hw_spi_ioctl(fd, SPI_IOC_WR_MODE, &mode), 0);
    digitalWrite(27, HIGH);
    digitalWrite(16, LOW);
    EXPECT_EQ(spi(fd, {0x06, 0x00}), (Bytes{0xff, 0xff}));
    EXPECT_EQ(spi(fd, {0x05, 0x00}), (Bytes{0xff, 0x02}));
    EXPECT_EQ(hw_spi_close(fd), 0);

    piLock(0);
    piUnlock(0);

    EXPECT_TRUE(expect_trace(board->trace().lines(), R"(
        pins setup
        pin 26 output
        pin 27 output
        pin 16 output
        pin 26 = 1
        pin 22 -> 1
        delay 20000
        i2c 0x20 open
        i2c 0x20 [0x00] = 0x03
        i2c 0x20 [0x00] -> 0x03
        i2c 0x20 [0x14] = 0x0580
        i2c 0x20 [0x14] -> 0x0580
        i2c 0x20 = 0x01
        i2c 0x20 -> 0xff
        spi open /dev/spidev0.1
        spi mode = 0
        pin 27 = 1
        pin 16 = 0
        spi eeprom: 06 00 -> ff ff
        spi eeprom: 05 00 -> ff 02
        spi close
        lock 0
        unlock 0)"));
    EXPECT_EQ(board->clock().now_us(), 20000u);
    EXPECT_EQ(board->expander(0x20).reg(Mcp23017::kOlat, Mcp23017::kA), 0x80);
    EXPECT_EQ(board->expander(0x20).reg(Mcp23017::kOlat, Mcp23017::kB), 0x05);
}

TEST(Seam, AnEepromWriteIsBusyUntilAWaitLetsTheCycleEnd)
{
    InstalledBoard board(kPortableWiring);
    SelfAdvancing self(board->clock());
    wiringPiSetup();
    for (const int pin : {27, 16}) {
        pinMode(pin, OUTPUT);
    }
    digitalWrite(27, HIGH);
    const int fd = hw_spi_open("/dev/spidev0.1", O_RDWR);
    spi(fd, {0x06, 0x00});
    spi(fd, {0x02, 0x00, 0x00, 0x42});
    int polls = 0;
    while ((spi(fd, {0x05, 0x00})[1] & 1) != 0) {
        hw_delay_us(1000);
        ASSERT_LT(++polls, 100);
    }
    EXPECT_EQ(polls, 5);
    EXPECT_EQ(spi(fd, {0x03, 0x00, 0x00, 0x00})[3], 0x42);
    hw_spi_close(fd);
}

TEST(CurrentBoard, IsInitiallyAPortableInRealTime)
{
    const auto board = current_board();
    ASSERT_NE(board, nullptr);
    EXPECT_EQ(board->wiring().name, "portable");
    EXPECT_EQ(board->clock().mode(), Clock::Mode::kRealTime);
    EXPECT_EQ(current_board(), board);
    const int fd = wiringPiI2CSetup(0x20);
    EXPECT_GT(fd, 0);
    ::close(fd);
}

TEST(CurrentBoard, ThePreviousOneIsRestoredAndTheInstalledOneIsStopped)
{
    const auto first = current_board();
    const auto mine = std::make_shared<Board>(kBenchtopWiring, Clock::Mode::kManual);
    std::jthread sleeper;
    {
        InstalledBoard installed(mine);
        EXPECT_EQ(current_board(), mine);
        EXPECT_EQ(&*installed, mine.get());
        sleeper = std::jthread([] { hw_delay_us(1'000'000); });
        ASSERT_TRUE(mine->clock().wait_for_sleepers(1));
    }
    sleeper.join(); // its wait was ended
    EXPECT_EQ(current_board(), first);
}

TEST(CurrentBoard, AHandleOfOneBoardReachesTheSameAddressOfTheNext)
{
    int fd = -1;
    {
        InstalledBoard board(kPortableWiring);
        fd = wiringPiI2CSetup(0x20);
    }
    InstalledBoard board(kBenchtopWiring);
    EXPECT_EQ(wiringPiI2CWriteReg8(fd, 0x00, 0x0f), 0);
    EXPECT_EQ(board->expander(0x20).reg(Mcp23017::kIodir, Mcp23017::kA), 0x0f);
    ::close(fd);
}

TEST(Locks, FourNumberedLocksExcludeThreads)
{
    InstalledBoard board(kPortableWiring);
    for (int key = 0; key < 4; ++key) {
        piLock(key); // independent of each other
    }
    for (int key = 0; key < 4; ++key) {
        piUnlock(key);
    }

    int counter = 0; // guarded by lock 1
    const auto work = [&counter] {
        for (int i = 0; i < 1000; ++i) {
            piLock(1);
            ++counter;
            piUnlock(1);
        }
    };
    std::thread other(work);
    work();
    other.join();
    EXPECT_EQ(counter, 2000);
}

TEST(Locks, HeldLockBlocksAnotherThread)
{
    InstalledBoard board(kPortableWiring);
    for (int round = 0; round < 20; ++round) {
        std::atomic<bool> arrived = false;
        std::atomic<bool> given_back = false;
        bool entered_too_early = true;
        piLock(3);
        std::thread other([&] {
            arrived = true;
            piLock(3);
            entered_too_early = !given_back;
            piUnlock(3);
        });
        while (!arrived) {
            std::this_thread::yield();
        }
        for (int i = 0; i < 1000; ++i) {
            std::this_thread::yield();
        }
        given_back = true;
        piUnlock(3);
        other.join();
        ASSERT_FALSE(entered_too_early);
    }
}

TEST(Locks, AKeyOutOfRangeDoesNothing)
{
    InstalledBoard board(kPortableWiring);
    piLock(-1);
    piUnlock(-1);
    piLock(4);
    piUnlock(4);
    EXPECT_TRUE(board->trace().lines().empty());
}

struct Platform {
    const BoardWiring* wiring;
};
void PrintTo(const Platform& platform, std::ostream* out)
{
    *out << platform.wiring->name;
}
std::string platform_name(const testing::TestParamInfo<Platform>& platform)
{
    return std::string(platform.param.wiring->name);
}

struct Wiring : testing::TestWithParam<Platform> {};
INSTANTIATE_TEST_SUITE_P(Platforms, Wiring,
                         testing::Values(Platform{&kBenchtopWiring}, Platform{&kPortableWiring},
                                         Platform{&kKsr7000Wiring}),
                         platform_name);

TEST_P(Wiring, TheEepromIsNumber5OfTheSecondSelect)
{
    const auto targets = GetParam().wiring->spi_targets;
    const auto found = std::find_if(targets.begin(), targets.end(),
                                    [](const auto& target) { return target.name == "eeprom"; });
    ASSERT_NE(found, targets.end());
    EXPECT_EQ(found->multiplexer_number, 5u);
    EXPECT_EQ(found->node, "/dev/spidev0.1");
}

TEST_P(Wiring, ALowLevelOfPin26ResetsTheExpanders)
{
    InstalledBoard board(*GetParam().wiring);
    for (const ExpanderWiring& row : GetParam().wiring->expanders) {
        const int fd = wiringPiI2CSetup(row.address);
        EXPECT_EQ(wiringPiI2CWriteReg8(fd, 0x00, 0x00), 0);
        wiringPiSetup();
        pinMode(26, OUTPUT); // drives the 0 of its latch
        EXPECT_EQ(wiringPiI2CReadReg8(fd, 0x00), -1);
        digitalWrite(26, HIGH);
        EXPECT_EQ(wiringPiI2CReadReg8(fd, 0x00), 0xff);
        pinMode(26, INPUT);
        digitalWrite(26, LOW);
        ::close(fd);
    }
}

TEST_P(Wiring, HasTheI2cChipsOfItsPlatform)
{
    const bool portable = GetParam().wiring == &kPortableWiring;
    const bool benchtop = GetParam().wiring == &kBenchtopWiring;
    InstalledBoard board(*GetParam().wiring);
    std::vector<int> found;
    for (int address = 0; address < 0x80; ++address) {
        if (const int fd = wiringPiI2CSetup(address); fd >= 0) {
            found.push_back(address);
            ::close(fd);
        }
    }
    EXPECT_EQ(found, portable   ? (std::vector{0x09, 0x0b, 0x20})
                     : benchtop ? (std::vector{0x20, 0x24, 0x34})
                                : (std::vector{0x09, 0x0b, 0x20, 0x24, 0x34}));
}

std::atomic<int> g_interrupts{0};

struct PowerButton : testing::TestWithParam<Platform> {};
INSTANTIATE_TEST_SUITE_P(Platforms, PowerButton,
                         testing::Values(Platform{&kBenchtopWiring}, Platform{&kKsr7000Wiring}),
                         platform_name);

TEST_P(PowerButton, AnInterruptOfTheExpanderIsARisingEdgeOfPin2)
{
    g_interrupts = 0;
    InstalledBoard board(*GetParam().wiring);
    wiringPiSetup();
    ASSERT_EQ(wiringPiISR(2, INT_EDGE_RISING, [] { ++g_interrupts; }), 0);
    const int fd = wiringPiI2CSetup(0x20);
    wiringPiI2CWriteReg8(fd, 0x05, 0x40); // GPINTENB
    board->expander(0x20).drive(Mcp23017::kB, 0x40, 0x40);
    ASSERT_TRUE(board->gpio().wait_for_handlers());
    EXPECT_EQ(g_interrupts, 1);
    EXPECT_EQ(digitalRead(2), 1);
    EXPECT_EQ(wiringPiI2CReadReg8(fd, 0x11), 0x40 | GetParam().wiring->expanders[0].idle_high_b); // INTCAPB
    EXPECT_EQ(digitalRead(2), 0);
    ::close(fd);
}

TEST(BenchtopWiring, TheArmedInterruptIsIdleUntilItsLineFalls)
{
    InstalledBoard board(kBenchtopWiring);
    const int fd = wiringPiI2CSetup(0x20);
    wiringPiI2CWriteReg8(fd, 0x0b, 0x40); // IOCON
    wiringPiI2CWriteReg8(fd, 0x01, 0x6e); // IODIRB
    wiringPiI2CWriteReg8(fd, 0x07, 0x20); // DEFVALB
    wiringPiI2CWriteReg8(fd, 0x09, 0x20); // INTCONB
    wiringPiI2CWriteReg8(fd, 0x05, 0x20); // GPINTENB
    EXPECT_EQ(board->gpio().level(2), 0);
    board->expander(0x20).drive(Mcp23017::kB, 0x20, 0x00);
    EXPECT_EQ(board->gpio().level(2), 1);
    ::close(fd);
}

TEST(InterruptHandler, MayUseTheBoardItself)
{
    g_interrupts = 0;
    InstalledBoard board(kBenchtopWiring);
    wiringPiSetup();
    wiringPiISR(2, INT_EDGE_RISING, [] {
        const int fd = wiringPiI2CSetup(0x20);
        wiringPiI2CReadReg8(fd, 0x11);
        ::close(fd);
        ++g_interrupts;
    });
    const int fd = wiringPiI2CSetup(0x20);
    wiringPiI2CWriteReg8(fd, 0x05, 0x40);
    for (const uint8_t level : Bytes{0x40, 0x00, 0x40}) {
        board->expander(0x20).drive(Mcp23017::kB, 0x40, level);
        ASSERT_TRUE(board->gpio().wait_for_handlers());
    }
    EXPECT_EQ(g_interrupts, 3);
    ::close(fd);
}

TEST(Board, PinsThatIdleHighReadHigh)
{
    Board portable(kPortableWiring);
    EXPECT_EQ(portable.gpio().level(22), 1); // pulled down by the power button
    Board benchtop(kBenchtopWiring);
    EXPECT_EQ(benchtop.gpio().level(15), 1); // pulled down by the keypad controller
    EXPECT_EQ(benchtop.gpio().level(2), 0);
}

TEST(Board, ItsEepromIsKeptInTheImage)
{
    const auto path = std::filesystem::temp_directory_path() / ("board-image-" + std::to_string(::getpid()));
    const Bytes data{1, 2, 3};
    Board(kPortableWiring, Clock::Mode::kManual, path).eeprom().program(100, data);
    const Bytes cells = Board(kPortableWiring, Clock::Mode::kManual, path).eeprom().contents();
    EXPECT_EQ(Bytes(cells.begin() + 100, cells.begin() + 103), data);
    std::filesystem::remove(path);
}

TEST(Board, AChipHeldForLongerThanItsBoardStaysUsable)
{
    auto board = std::make_unique<Board>(kBenchtopWiring, Clock::Mode::kManual);
    const auto expander = std::dynamic_pointer_cast<Mcp23017>(board->i2c().device(0x20));
    const auto eeprom = std::dynamic_pointer_cast<Cat25Eeprom>(board->spi().device("eeprom"));
    board.reset();
    const Bytes enable{0x05, 0x01};
    expander->write(enable);
    expander->drive(Mcp23017::kB, 0x01, 0x01); // its interrupt output is unconnected now
    EXPECT_EQ(expander->interrupt_level(Mcp23017::kB), 0);
    EXPECT_EQ(eeprom->status(), 0);
}

TEST(Board, ARefusedMessageFailsWithItsErrorAtTheSeam)
{
    InstalledBoard board(kPortableWiring);
    wiringPiSetup();
    for (const int pin : {27, 16}) {
        pinMode(pin, OUTPUT);
    }
    digitalWrite(27, HIGH);
    insert_fault(board->spi(), "eeprom")->refuse_after(1);
    const int fd = hw_spi_open("/dev/spidev0.1", O_RDWR);
    EXPECT_EQ(spi(fd, {0x05, 0x00}), (Bytes{0xff, 0x00}));
    spi_ioc_transfer transfer{};
    EXPECT_EQ(hw_spi_ioctl(fd, SPI_IOC_MESSAGE(1), &transfer), -1);
    EXPECT_EQ(errno, EIO);
    hw_spi_close(fd);
}

TEST(Board, ManyThreadsMayUseEverythingAtOnce)
{
    InstalledBoard board(kBenchtopWiring, Clock::Mode::kRealTime);
    wiringPiSetup();
    wiringPiISR(2, INT_EDGE_RISING, [] { ++g_interrupts; });
    std::vector<std::jthread> threads;
    for (int n = 0; n < 4; ++n) {
        threads.emplace_back([n, &board] {
            const int i2c = wiringPiI2CSetup(0x20);
            const int fd = hw_spi_open("/dev/spidev0.1", O_RDWR);
            for (int i = 0; i < 50; ++i) {
                wiringPiI2CWriteReg8(i2c, 0x05, 0x40);
                board->expander(0x20).drive(Mcp23017::kB, 0x40, (i & 1) != 0 ? 0x40 : 0x00);
                wiringPiI2CReadReg8(i2c, 0x13);
                digitalWrite(11, i & 1);
                digitalRead(11);
                spi(fd, {0x05, 0x00});
                piLock(n & 1);
                piUnlock(n & 1);
                hw_delay_us(1);
            }
            hw_spi_close(fd);
            ::close(i2c);
        });
    }
    threads.clear();
    EXPECT_TRUE(board->gpio().wait_for_handlers());
    EXPECT_EQ(board->trace().lines_with({"delay 1"}).size(), 200u);
}

TEST(BoardWaits, AThreadThatOnlyPollsAppearsOnceInTheTraceOfARunningBoard)
{
    InstalledBoard board(kBenchtopWiring, Clock::Mode::kRealTime);
    const auto before = std::chrono::steady_clock::now();
    std::jthread([] {
        for (int i = 0; i < 10; ++i) {
            hw_delay_us(200);
        }
    }).join();
    EXPECT_TRUE(expect_trace(board->trace().take(), "delay 200"));
    EXPECT_GE(std::chrono::steady_clock::now() - before, 9 * std::chrono::microseconds(Clock::kPollUs));
}

TEST(BoardWaits, AnAccessOrAnotherWaitEndsPolling)
{
    InstalledBoard board(kBenchtopWiring, Clock::Mode::kRealTime);
    std::jthread([] {
        hw_delay_us(200);
        piLock(1);
        piUnlock(1);
        hw_delay_us(200);
        hw_delay_us(300);
        hw_delay_us(200);
        hw_delay_us(1000); // not a short wait
        hw_delay_us(1000);
    }).join();
    EXPECT_TRUE(expect_trace(board->trace().take(), R"(
        delay 200
        lock 1
        unlock 1
        delay 200
        delay 300
        delay 200
        delay 1000
        delay 1000
    )"));
}

TEST(BoardWaits, OnAManualClockEachWaitOfAPollingThreadIsTraced)
{
    InstalledBoard board(kBenchtopWiring);
    const SelfAdvancing self(board->clock());
    hw_delay_us(200);
    hw_delay_us(200);
    EXPECT_TRUE(expect_trace(board->trace().take(), "delay 200\ndelay 200"));
    EXPECT_EQ(board->clock().now_us(), 400u);
}

} // namespace
} // namespace sim_board
