#include <chrono>
#include <cstdlib>
#include <thread>

#include <fcntl.h>

#include <gtest/gtest.h>
#include <wiringPiI2C.h>

#include "board/board_verbs.h"
#include "board/current_board.h"
#include "board/environment.h"
#include <hw/hw.h>

using namespace sim_board;

namespace {

class BoardEnvironmentTest : public testing::Test {
protected:
    void SetUp() override
    {
        for (const char* name : {"ORVAN_BOARD", "ORVAN_BOARD_EEPROM", "ORVAN_BOARD_CLOCK_RATE",
                                 "ORVAN_BOARD_CONTROL", "ORVAN_BOARD_MODULE_POWER", "ORVAN_BOARD_START_UP"}) {
            ::unsetenv(name);
        }
    }
};

TEST_F(BoardEnvironmentTest, DefaultIsAPortableInRealTime)
{
    const BoardEnvironment environment = board_environment();
    EXPECT_EQ(environment.wiring, &kPortableWiring);
    EXPECT_EQ(environment.eeprom_image, "");
    EXPECT_EQ(environment.clock_rate, 1u);
    EXPECT_FALSE(environment.start_up);
    EXPECT_EQ(environment.control_path, "");
    EXPECT_EQ(environment.module_power_path, "");
}

TEST_F(BoardEnvironmentTest, EachPlatformIsKnownByItsName)
{
    for (const BoardWiring* wiring : {&kBenchtopWiring, &kPortableWiring, &kKsr7000Wiring}) {
        ::setenv("ORVAN_BOARD", std::string(wiring->name).c_str(), 1);
        EXPECT_EQ(board_environment().wiring, wiring) << wiring->name;
    }
}

TEST_F(BoardEnvironmentTest, AnUnknownPlatformIsReportedAndCountsAsNotSet)
{
    ::setenv("ORVAN_BOARD", "rack", 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(board_environment().wiring, &kPortableWiring);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "sim_board: ORVAN_BOARD=rack is none of benchtop, portable, ksr7000\n");
}

TEST_F(BoardEnvironmentTest, ARateOutsideOneToTenThousandIsReportedAndCountsAsNotSet)
{
    for (const char* rate : {"0", "10001", "-1", "2.5", "10x", "", "99999999999"}) {
        ::setenv("ORVAN_BOARD_CLOCK_RATE", rate, 1);
        testing::internal::CaptureStderr();
        EXPECT_EQ(board_environment().clock_rate, 1u) << rate;
        EXPECT_EQ(testing::internal::GetCapturedStderr(), std::string("sim_board: ORVAN_BOARD_CLOCK_RATE=") +
                                                              rate + " is no number from 1 to 10000\n");
    }
    ::setenv("ORVAN_BOARD_CLOCK_RATE", "10000", 1);
    EXPECT_EQ(board_environment().clock_rate, 10000u);
}

TEST_F(BoardEnvironmentTest, TheFirstBoardIsCreatedFromIt)
{
    ::setenv("ORVAN_BOARD", "benchtop", 1);
    ::setenv("ORVAN_BOARD_CLOCK_RATE", "10000", 1);
    ::setenv("ORVAN_BOARD_AT_POWER_ON", "spi absent;fly;i2c 0x24 absent", 1);
    ::setenv("ORVAN_BOARD_MODULE_POWER", "/none/pipe", 1);
    ::setenv("ORVAN_BOARD_START_UP", "1", 1);
    testing::internal::CaptureStderr();
    const auto board = current_board();
    ASSERT_EQ(&board->wiring(), &kBenchtopWiring); // created once per process
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "sim_board: no report of the module power: /none/pipe: No such file or directory\n"
              "sim_board: ORVAN_BOARD_AT_POWER_ON: error unknown verb 'fly'; 'help' lists them\n");
    EXPECT_LT(hw_spi_open("/dev/spidev0.0", O_RDWR), 0);
    EXPECT_LT(wiringPiI2CSetup(0x24), 0);
    EXPECT_GE(wiringPiI2CSetup(0x20), 0);

    std::jthread sleeper([&] { board->clock().sleep_us(600'000'000); });
    ASSERT_TRUE(board->clock().wait_for_sleepers(1));
    for (int round = 0; round < 200; ++round) {
        board->clock().sleep_us(Clock::kPeriodUs - 1);
    }
    EXPECT_EQ(board->clock().sleepers(), 1u) << "a period is not shortened in the start-up";
    EXPECT_EQ(execute_on_board(*board, "serving now"), "error 'serving' expected\n");
    EXPECT_EQ(execute_on_board(*board, "serving"), "ok\n");
    sleeper.join();

    const auto start = std::chrono::steady_clock::now();
    const uint64_t before = board->clock().now_us();
    // Ten minutes of the board's time are 60 ms of real time; at rate 1 the test would hang.
    EXPECT_GE(board->clock().sleep_us(600'000'000), before + 600'000'000);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
}

} // namespace
