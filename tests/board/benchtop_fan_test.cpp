// The fan drive on SPI, on the thread of a benchtop that has started.

#include <algorithm>
#include <thread>

#include "benchtop_start_bench.h"
#include "orvan_sdk/IDeviceConnectionHandler.h"
#include "support/maintenance_client.h"

using namespace board_test;
using namespace HaldeElec::Orvan;
using Lines = std::vector<std::string>;

namespace {

class BenchtopFan : public BenchtopStart {
protected:
    // A cycle is its sleep and the settling of the multiplexer.
    static constexpr uint64_t kCycleUs = 120'000'000 + kSettlingUs;

    void SetUp() override
    {
        BenchtopStart::SetUp();
        if (IsSkipped()) {
            return;
        }
        store(settled_settings());
        drive = sim_board::insert_fault(board->spi(), "fan");
    }
    /** Runs the first cycle, with every module polled at its own address. */
    void start_fan()
    {
        start_and_settle();
        Scpi_Orvanx::getInstance()->setSelectedChannel(0);
        board->trace().clear();
    }
    void hottest_module_reports(const std::string& celsius)
    {
        for (int channel = 1; channel <= 4; ++channel) {
            module(channel).always(ModuleAnswer::reply(channel == 3 ? celsius + ";+OK\r\n" : "20.0;+OK\r\n"));
        }
    }
    void cycle() { pass(kCycleUs); }
    /** Lines about the fan in the trace since the last call. */
    Lines fan_lines()
    {
        Lines lines;
        for (const std::string& line : board->trace().take()) {
            if (line.starts_with("spi ")) {
                lines.push_back(line);
            } else if (line.starts_with("debug ")) {
                lines.push_back(line.substr(line.find(']') + 1));
            }
        }
        return lines;
    }
    static TestResult fan_test() { return test_result(CBIT, kFanTest); }

    std::shared_ptr<sim_board::FaultySpiDevice> drive;
    static constexpr TestResult kPass{BIT_PASS, 0};
    static constexpr TestResult kFail{BIT_FAIL, 0};
};

struct Band {
    const char* celsius;
    const char* logged;
    const char* drive;
};

TEST_F(BenchtopFan, FollowsTheTemperatureOfTheHottestModule)
{
    start_fan();
    for (const auto& [celsius, logged, value] :
         {Band{"47.999", "47.999000", "7f"}, Band{"48.0", "48.000000", "3f"},
          Band{"57.999", "57.999000", "3f"}, Band{"58.0", "58.000000", "00"}, Band{"59.0", "59.000000", "00"},
          Band{"60.0", "60.000000", "00"}, Band{"100.0", "100.000000", "00"},
          Band{"57.9999", "57.999900", "3f"}, Band{"20.5", "20.500000", "7f"}}) {
        hottest_module_reports(celsius);
        cycle();
        EXPECT_EQ(fan_lines(),
                  (Lines{std::string("Temperature: ") + logged, "OrvanBenchtopDevice::fanSpeed start",
                         std::string("spi fan: 00 00 ") + value + " -> ff ff ff"}))
            << celsius;
    }
}

TEST_F(BenchtopFan, SilentModuleCountsAsHot)
{
    start_fan();
    hottest_module_reports("20.0");
    module(2).always(ModuleAnswer::reply("-ERR -200, \"Execution error\"\r\n"));
    cycle();
    EXPECT_EQ(fan_lines().back(), "spi fan: 00 00 00 -> ff ff ff");
}

TEST_F(BenchtopFan, IsFixedAtAnyTemperatureInFixedMode)
{
    start_fan();
    device->SetFanMode(1);
    EXPECT_EQ(device->GetFanMode(), 1);
    for (const char* celsius : {"20.0", "50.0", "90.0"}) {
        hottest_module_reports(celsius);
        cycle();
        EXPECT_EQ(fan_lines().back(), "spi fan: 00 00 19 -> ff ff ff") << celsius;
    }
    device->SetFanMode(0);
    cycle();
    EXPECT_EQ(fan_lines().back(), "spi fan: 00 00 00 -> ff ff ff");
}

TEST_F(BenchtopFan, RunsEveryTwoMinutes)
{
    start_fan();
    pass(120'000'000 - kSettlingUs);
    EXPECT_TRUE(fan_lines().empty());
    pass(kSettlingUs);
    EXPECT_EQ(fan_lines(), (Lines{"Temperature: 1.000000", "OrvanBenchtopDevice::fanSpeed start"}));
    pass(kSettlingUs);
    EXPECT_EQ(fan_lines(), (Lines{"spi fan: 00 00 7f -> ff ff ff"}));
}

TEST_F(BenchtopFan, HoldsTheBusAndItsChannelDuringTheTransferAndRestoresTheChannel)
{
    start_fan();
    device->SetSelectChannel(3);
    pass(120'000'000); // into the settling of the multiplexer
    EXPECT_EQ(selected(), 4u) << "what routes now routes channel 4";
    EXPECT_FALSE(device->GetSPIhandler()->mtx.try_lock());
    pass(kSettlingUs);
    EXPECT_EQ(selected(), 3u);
    ASSERT_TRUE(device->GetSPIhandler()->mtx.try_lock());
    device->GetSPIhandler()->mtx.unlock();
}

TEST_F(BenchtopFan, TestFailsFromTheEleventhCycleAndPassesBelowTenFailures)
{
    drive->refuse_after(0);
    start_fan(); // the first cycle
    std::vector<bool> failed = {fan_test() == kFail};
    for (int number = 2; number <= 14; ++number) {
        cycle();
        failed.push_back(fan_test() == kFail);
    }
    EXPECT_EQ(failed, (std::vector<bool>{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1}));
    EXPECT_EQ(logs.count(LOG_INFO, "sendDataBySPI - error : -1"), 14u);
    EXPECT_EQ(selected(), 1u) << "the former one, even after a failure";
    ASSERT_TRUE(device->GetSPIhandler()->mtx.try_lock());
    device->GetSPIhandler()->mtx.unlock();

    // The count stopped at ten: the first good cycle still reports it.
    drive->refuse_after(std::nullopt);
    cycle();
    EXPECT_EQ(fan_test(), kFail);
    cycle();
    EXPECT_EQ(fan_test(), kPass);
    // Nine are left, less the two good cycles: three failures reach ten again, and the next cycle reports it.
    drive->refuse_after(0);
    cycle();
    cycle();
    EXPECT_EQ(fan_test(), kPass);
    cycle();
    EXPECT_EQ(fan_test(), kFail);
    // Good cycles count down to zero, and not below.
    drive->refuse_after(std::nullopt);
    for (int number = 0; number < 12; ++number) {
        cycle();
    }
    EXPECT_EQ(fan_test(), kPass);
    drive->refuse_after(0);
    for (int number = 0; number < 10; ++number) {
        cycle();
    }
    EXPECT_EQ(fan_test(), kPass);
    cycle();
    EXPECT_EQ(fan_test(), kFail);
}

TEST_F(BenchtopFan, WithoutAManagerNothingIsReportedOrCounted)
{
    start_fan();
    BITManager* const manager = inside().bit_manager();
    inside().set_bit_manager(nullptr);
    drive->refuse_after(0);
    manager->setTestResult(CBIT, kFanTest, BIT_IN_PROGRESS, 7);
    for (int number = 0; number < 12; ++number) {
        cycle();
    }
    EXPECT_EQ(fan_test(), (TestResult{BIT_IN_PROGRESS, 7}));
    inside().set_bit_manager(manager);
    cycle();
    EXPECT_EQ(fan_test(), kPass) << "no failure was counted";
}

TEST_F(BenchtopFan, ModeIsNotStoredAndStartsAsAuto)
{
    start_fan();
    const Blob before = eeprom_image();
    device->SetFanMode(1);
    {
        const sim_board::SelfAdvancing self{board->clock()};
        CPersistentData::GetInstance()->writeData(true, true);
    }
    EXPECT_EQ(eeprom_image(), before);

    end();
    connect_modules();
    start_fan();
    EXPECT_EQ(device->GetFanMode(), 0);
    cycle();
    EXPECT_EQ(fan_lines().back(), "spi fan: 00 00 7f -> ff ff ff");
}

TEST_F(BenchtopFan, DestructorWaitsForTheSleepToEndAndThenClosesThePort)
{
    start_fan();
    const BenchtopDeviceTestPeer peer = inside();
    std::thread destructor([this] { orvan_test::end_with_frames([this] { device.reset(); }); });
    while (peer.fan_runs()) {
        std::this_thread::yield();
    }
    board->clock().advance(120'000'000 - 1);
    EXPECT_TRUE(board->trace().lines_with({"spi "}).empty());
    board->clock().advance(1);
    destructor.join();
    EXPECT_EQ(board->trace().lines_with({"spi "}), (Lines{"spi close"})) << "no further update";
}

} // namespace
