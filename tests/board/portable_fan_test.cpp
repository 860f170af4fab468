// The fan thread of the portable.

#include <array>
#include <thread>

#include "orvan_sdk/bit/bit_manager.h"
#include "orvan_sdk/bit/bit_tests.h"
#include "portable_bench.h"
#include "support/scripted_module.h"

using namespace board_test;

namespace {

using orvan_test::ModuleAnswer;

constexpr uint64_t kCycle = 5'000'000;
constexpr uint64_t kCycleAfterError = 1'000'000;
constexpr uint8_t kFans = 0x18;

/** A fan thread that sleeps between steps of the clock and follows one polled module. */
class PortableFans : public PortableTest {
protected:
    PortableFans()
    {
        {
            sim_board::SelfAdvancing self{board->clock()};
            device->InitHW();
        }
        modules->m_orvanXIp[0] = module.address();
        modules->m_OrvanXport[0] = static_cast<uint32_t>(module.port());
        modules->setScpiPort(module.port());
        modules->setSelectedChannel(1);
        modules->setNumberofChannels(1);
        if (tests->getTestsNumber(CBIT) == 0) {
            tests->registerTest(CBIT, {kFanTest});
        }
        tests->setTestResult(CBIT, kFanTest, BIT_NOT_PERFORMED, ERR_NONE);
        peer.set_bit_manager(tests);
        temperature("25.0");
        logs.clear();
        trace();
    }
    ~PortableFans() override
    {
        stop();
        end_module_service();
    }

    /** Sets the temperature of the hottest module. */
    void temperature(const std::string& degrees)
    {
        module.always(ModuleAnswer::reply(degrees + ";+OK\r\n"));
        modules->getTempOrvanXForAlltheChannel(1);
    }
    void start()
    {
        peer.run_fan_thread(true);
        fans = std::thread([this] { peer.fan_control(); });
        ASSERT_TRUE(board->clock().wait_for_sleepers(1));
    }
    void next_cycle(uint64_t after = kCycle)
    {
        board->clock().advance(after);
        ASSERT_TRUE(board->clock().wait_for_sleepers(1));
    }
    void stop()
    {
        if (!fans.joinable()) {
            return;
        }
        peer.run_fan_thread(false);
        board->clock().advance(kCycle);
        fans.join();
    }
    void put_port_a(uint8_t bits)
    {
        board->i2c().device(kExpander)->write(std::array<uint8_t, 2>{0x12, bits});
    }
    int fan_test() const
    {
        bitReport_t report = {};
        for (int row = 0; tests->getTestResult(CBIT, row, report); ++row) {
            if (std::string(report.testName) == kFanTest) {
                return report.errorCode == ERR_NONE ? report.result : -1;
            }
        }
        return -1;
    }

    orvan_test::ScriptedModule module;
    Scpi_Orvanx* modules = Scpi_Orvanx::getInstance();
    BITManager* tests = BITManager::getInstance(0); // with no periodic thread
    std::thread fans;
};

TEST_F(PortableFans, LeaveResetAtLowSpeedAndAreCheckedEvery5Seconds)
{
    put_port_a(0xe7); // with both reset bits
    trace();
    start();
    next_cycle();
    stop();
    // Bits 0 and 1 are inputs and read 0.
    EXPECT_TRUE(expect_trace(trace(), R"(
        i2c 0x20 open
        i2c 0x20 [0x12] -> 0xe4
        i2c 0x20 [0x12] = 0xd8
        i2c 0x20 [0x12] -> 0xd8
        i2c 0x20 [0x12] = 0xd8
        delay 5000000
        i2c 0x20 [0x12] -> 0xd8
        i2c 0x20 [0x12] = 0xd8
        delay 5000000
    )"));
    EXPECT_EQ(port_a(), 0xd8);
    EXPECT_TRUE(logs.lines().empty());
    EXPECT_EQ(fan_test(), BIT_PASS);
}

TEST_F(PortableFans, RunFastFrom54DegreesAndSlowBelow52AndStayInBetween)
{
    start();
    const struct {
        const char* degrees;
        uint8_t slow; // the bits at the end of the cycle
    } rows[] = {
        {"51.99", kFans}, {"52.0", kFans}, {"53.0", kFans},  {"53.99", kFans}, {"54.0", 0},
        {"53.99", 0},     {"53.0", 0},     {"52.0", 0},      {"51.99", kFans}, {"53.0", kFans},
        {"100.0", 0},     {"52.0", 0},     {"-10.0", kFans}, {"0.0", kFans},   {"60.0", 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.degrees);
        temperature(row.degrees);
        next_cycle();
        EXPECT_EQ(port_a(), 0x80 | row.slow) << "and the module keeps its power";
    }
}

TEST_F(PortableFans, RunFastInFixedModeAtAnyTemperature)
{
    start();
    for (const char* degrees : {"20.0", "53.0", "99.0"}) {
        SCOPED_TRACE(degrees);
        temperature(degrees);
        device->SetFanMode(1);
        next_cycle();
        EXPECT_EQ(port_a() & kFans, 0);
    }
    temperature("53.0");
    device->SetFanMode(0);
    next_cycle();
    EXPECT_EQ(port_a() & kFans, 0) << "in between they stay";
    temperature("20.0");
    next_cycle();
    EXPECT_EQ(port_a() & kFans, kFans);
}

TEST_F(PortableFans, RunFastWhenTheModuleDoesNotAnswer)
{
    start();
    module.always(ModuleAnswer::reply("-ERR\r\n"));
    modules->getTempOrvanXForAlltheChannel(1);
    next_cycle();
    EXPECT_EQ(port_a() & kFans, 0);
}

TEST_F(PortableFans, KeepTheBitsBetweenThem)
{
    start();
    temperature("53.0");
    for (const uint8_t bits : std::to_array<uint8_t>({0x08, 0x10, 0x18, 0x00, 0x24, 0xf4})) {
        put_port_a(bits);
        next_cycle();
        EXPECT_EQ(port_a(), bits);
    }
}

TEST_F(PortableFans, WithoutAnExpanderTheThreadLogsThatAndEnds)
{
    insert_fault(board->i2c(), kExpander)->absent(true);
    peer.run_fan_thread(true);
    peer.fan_control();
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_ERR, "fan_control: failed to open i2c, addr: 20h"}}));
    EXPECT_TRUE(expect_trace(trace(), "i2c 0x20 open -> ENXIO"));
    EXPECT_EQ(fan_test(), BIT_NOT_PERFORMED);
}

TEST_F(PortableFans, ThatStayInResetAreLoggedAndTheLoopStillRuns)
{
    const auto fault = insert_fault(board->i2c(), kExpander);
    fault->refuse_after(2);
    trace();
    start();
    fault->refuse_after(std::nullopt);
    EXPECT_EQ(logs.lines(),
              (std::vector<LogLine>{{LOG_ERR, "fan_control: failed to take fans out of reset"}}));
    next_cycle(kCycleAfterError);
    stop();
    EXPECT_TRUE(expect_trace(trace(), R"(
        i2c 0x20 open
        i2c 0x20 [0x12] -> 0x80
        i2c 0x20 [0x12] = 0x98 -> EREMOTEIO
        i2c 0x20 [0x12] -> EREMOTEIO
        delay 1000000
        i2c 0x20 [0x12] -> 0x80
        i2c 0x20 [0x12] = 0x98
        delay 5000000
    )"));
}

TEST_F(PortableFans, AFailedReadWritesNothingAndIsTriedAgainAfterASecond)
{
    start();
    const auto fault = insert_fault(board->i2c(), kExpander);
    fault->not_acknowledging(true);
    trace();
    next_cycle();
    next_cycle(kCycleAfterError);
    EXPECT_TRUE(expect_trace(trace(), R"(
        i2c 0x20 [0x12] -> EREMOTEIO
        delay 1000000
        i2c 0x20 [0x12] -> EREMOTEIO
        delay 1000000
    )"));
    fault->not_acknowledging(false);
    next_cycle(kCycleAfterError);
    EXPECT_TRUE(expect_trace(trace(), R"(
        i2c 0x20 [0x12] -> 0x98
        i2c 0x20 [0x12] = 0x98
        delay 5000000
    )"));
    EXPECT_TRUE(logs.lines().empty()) << "the test is the only outlet";
}

TEST_F(PortableFans, AFailedWriteCountsAsAFailedCycle)
{
    start();
    insert_fault(board->i2c(), kExpander)->refuse_after(2);
    trace();
    next_cycle();
    EXPECT_TRUE(expect_trace(trace(), R"(
        i2c 0x20 [0x12] -> 0x98
        i2c 0x20 [0x12] = 0x98 -> EREMOTEIO
        delay 1000000
    )"));
}

TEST_F(PortableFans, TheTestFailsFromTheEleventhFailedCycleOnAndPassesOnceTheCountIsBelow10)
{
    start();
    const auto fault = insert_fault(board->i2c(), kExpander);
    fault->not_acknowledging(true);
    next_cycle();
    EXPECT_EQ(fan_test(), BIT_PASS);
    for (int failed = 2; failed <= 25; ++failed) {
        SCOPED_TRACE(failed);
        next_cycle(kCycleAfterError);
        EXPECT_EQ(fan_test(), failed <= 10 ? BIT_PASS : BIT_FAIL);
    }
    // The count is 10, and a cycle reports what it found.
    fault->not_acknowledging(false);
    next_cycle(kCycleAfterError);
    EXPECT_EQ(fan_test(), BIT_FAIL);
    next_cycle();
    EXPECT_EQ(fan_test(), BIT_PASS);
    // From 8 it takes two more failures to reach 10 again.
    fault->not_acknowledging(true);
    next_cycle();
    EXPECT_EQ(fan_test(), BIT_PASS);
    next_cycle(kCycleAfterError);
    EXPECT_EQ(fan_test(), BIT_PASS);
    next_cycle(kCycleAfterError);
    EXPECT_EQ(fan_test(), BIT_FAIL);
}

TEST_F(PortableFans, GoodCyclesCountDownToZeroAndNotBelow)
{
    start();
    for (int good = 0; good < 15; ++good) {
        next_cycle();
    }
    const auto fault = insert_fault(board->i2c(), kExpander);
    fault->not_acknowledging(true);
    next_cycle();
    for (int failed = 2; failed <= 11; ++failed) {
        next_cycle(kCycleAfterError);
    }
    EXPECT_EQ(fan_test(), BIT_FAIL);
}

TEST_F(PortableFans, WorkWithoutATestManager)
{
    peer.set_bit_manager(nullptr);
    start();
    next_cycle();
    EXPECT_EQ(port_a(), 0x98);
    EXPECT_EQ(fan_test(), BIT_NOT_PERFORMED);
}

TEST_F(PortableFans, FailuresAlsoCountWithoutATestManager)
{
    peer.set_bit_manager(nullptr);
    start();
    insert_fault(board->i2c(), kExpander)->not_acknowledging(true);
    next_cycle();
    for (int failed = 2; failed <= 10; ++failed) {
        next_cycle(kCycleAfterError);
    }
    peer.set_bit_manager(tests);
    next_cycle(kCycleAfterError);
    EXPECT_EQ(fan_test(), BIT_FAIL);
}

} // namespace
