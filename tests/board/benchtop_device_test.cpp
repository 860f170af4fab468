#include <atomic>
#include <cstring>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>
#include <wiringPi.h>

#include "benchtop_device_peer.h"
#include "board/current_board.h"
#include "board/expect_trace.h"
#include "board/faulty_i2c_device.h"
#include "orvan_sdk/OrvanDebug.h"
#include "orvan_sdk/lxi/option_tables.h"
#include "recording_handler.h"
#include "support/log_capture.h"
#include "support/output_capture.h"
#include "support/persistent_data_peer.h"

using namespace HaldeElec::Orvan;
using board_test::RecordingHandler;
using orvan_test::LogLine;
using sim_board::expect_trace;
using sim_board::Mcp23017;

namespace {

/** On a device whose start ended at its bus. */
class BenchtopDeviceTest : public testing::Test {
protected:
    void SetUp() override
    {
        board->spi().set_node_present("/dev/spidev0.1", false);
        device.emplace("/dev/null", 4);
        logs.clear();
        own_handler = device->GetSPIhandler();
        trace();
    }
    void TearDown() override { device->SetSPIhandler(own_handler); }

    std::vector<std::string> trace() { return board->trace().take(); }
    void record_calls() { device->SetSPIhandler(&recording); }
    uint32_t selected()
    {
        uint32_t channel = 0;
        device->GetSelectChannel(channel);
        return channel;
    }
    BenchtopDeviceTestPeer inside() { return {*device}; }
    Mcp23017& expander() { return board->expander(0x20); }

    sim_board::InstalledBoard board{sim_board::kBenchtopWiring};
    sim_board::SelfAdvancing self{board->clock()};
    orvan_test::LogCapture logs;
    RecordingHandler recording;
    std::optional<OrvanBenchtopDevice> device;
    IDeviceConnectionHandler* own_handler = nullptr;
};

// ---- routing

TEST_F(BenchtopDeviceTest, TriggerCoupleVisitsEachChannelAndRestoresTheSelection)
{
    record_calls();
    device->SetSelectChannel(7);
    EXPECT_EQ(device->SetTriggerCouple(4, eCoupling_ch3), 0);
    EXPECT_EQ(recording.calls,
              (std::vector<std::string>{"1 source 2", "2 source 2", "3 source 2", "4 source 2"}));
    EXPECT_EQ(selected(), 7u);
}

TEST_F(BenchtopDeviceTest, TriggerCoupleReturnsTheFailureOfTheLastChannelThatFailed)
{
    record_calls();
    device->SetSelectChannel(2);
    recording.results = {{1, -3}, {3, -7}};
    EXPECT_EQ(device->SetTriggerCouple(4, eCoupling_all), -7); // 4 has succeeded
    EXPECT_EQ(recording.calls.size(), 4u);
    EXPECT_EQ(selected(), 2u);
    recording.results = {{1, -3}};
    EXPECT_EQ(device->SetTriggerCouple(4, eCoupling_all), -3);
}

TEST_F(BenchtopDeviceTest, TriggerCoupleOfNoModulesDoesNothing)
{
    record_calls();
    device->SetSelectChannel(3);
    EXPECT_EQ(device->SetTriggerCouple(0, eCoupling_none), 0);
    EXPECT_TRUE(recording.calls.empty());
    EXPECT_EQ(selected(), 3u);
}

TEST_F(BenchtopDeviceTest, TriggerSourceIsForwardedAsACoupling)
{
    record_calls();
    recording.results = {{1, -5}};
    using Source = IOrvanDeviceManager::TriggerSource;
    for (const uint32_t channel : {1u, 2u}) {
        device->SetSelectChannel(channel);
        for (const Source source : {Source::External, Source::Bus, Source::Timer, Source::SPI}) {
            EXPECT_EQ(device->SetTriggerSource(source), channel == 1 ? -5 : 0);
        }
    }
    EXPECT_EQ(recording.calls,
              (std::vector<std::string>{"1 source 0", "1 source 1", "1 source 2", "1 source 3", "2 source 0",
                                        "2 source 1", "2 source 2", "2 source 3"}));
}

TEST_F(BenchtopDeviceTest, TriggerImpedanceIsSetAndReadAsOneOrZero)
{
    record_calls();
    device->SetSelectChannel(1);
    auto value = IOrvanDeviceManager::Off;
    EXPECT_EQ(device->SetTriggerInpImp(IOrvanDeviceManager::On), 0);
    EXPECT_EQ(device->GetTriggerInpImp(value), 0);
    EXPECT_EQ(value, IOrvanDeviceManager::On);
    EXPECT_EQ(device->SetTriggerInpImp(IOrvanDeviceManager::Off), 0);
    EXPECT_EQ(device->GetTriggerInpImp(value), 0);
    EXPECT_EQ(value, IOrvanDeviceManager::Off);
    recording.impedance = 10000;
    recording.results = {{1, -9}};
    EXPECT_EQ(device->GetTriggerInpImp(value), -9);
    EXPECT_EQ(value, IOrvanDeviceManager::On);
    EXPECT_EQ(device->SetTriggerInpImp(IOrvanDeviceManager::On), -9);
    EXPECT_EQ(recording.calls,
              (std::vector<std::string>{"1 impedance 1", "1 impedance? 1", "1 impedance 0", "1 impedance? 0",
                                        "1 impedance? 10000", "1 impedance 1"}));
}

TEST_F(BenchtopDeviceTest, RfOutputAndModulationSourcesReachTheHandler)
{
    record_calls();
    device->SetSelectChannel(2);
    for (const auto value : {IOrvanDeviceManager::On, IOrvanDeviceManager::Off}) {
        EXPECT_EQ(device->SetRFOutput(value), 0);
        EXPECT_EQ(device->SetFMModulationSource(value), 0);
        EXPECT_EQ(device->SetPulseModulationSource(value), 0);
    }
    recording.results = {{2, -4}};
    EXPECT_EQ(device->SetRFOutput(IOrvanDeviceManager::On), -4);
    EXPECT_EQ(device->SetFMModulationSource(IOrvanDeviceManager::On), -4);
    EXPECT_EQ(device->SetPulseModulationSource(IOrvanDeviceManager::On), -4);
    EXPECT_EQ(recording.calls, (std::vector<std::string>{"2 rf 1", "2 modulation 11", "2 modulation 21",
                                                         "2 rf 0", "2 modulation 10", "2 modulation 20",
                                                         "2 rf 1", "2 modulation 11", "2 modulation 21"}));
}

TEST_F(BenchtopDeviceTest, AmNeedsSettingsAndPrintsItsLineWithoutALineEnd)
{
    record_calls();
    device->SetSelectChannel(1);
    EXPECT_EQ(device->SetAMModulationSource(IOrvanDeviceManager::On), ERR_FAILED);
    EXPECT_TRUE(recording.calls.empty());

    const PersistentDataTestPeer peer(recording, g_benchtopModelsTable);
    inside().set_settings(peer.data);
    std::string output;
    {
        const orvan_test::OutputCapture out(STDOUT_FILENO);
        EXPECT_EQ(device->SetAMModulationSource(IOrvanDeviceManager::On), 0);
        recording.results = {{1, -2}};
        EXPECT_EQ(device->SetAMModulationSource(IOrvanDeviceManager::Off), -2);
        std::fflush(stdout);
        output = out.text();
    }
    inside().set_settings(nullptr);
    EXPECT_EQ(output,
              "OrvanBenchtopDevice::SetAMModulation startedOrvanBenchtopDevice::SetAMModulation started");
    EXPECT_EQ(recording.calls, (std::vector<std::string>{"1 modulation 1", "1 modulation 0"}));
}

// ---- identity and options

TEST_F(BenchtopDeviceTest, ConstantsOfTheClass)
{
    EXPECT_EQ(device->device_type_product, BenchtopDevice);
    EXPECT_EQ(device->detectDevicePin(), 1);
    EXPECT_FALSE(device->Connected());
    EXPECT_FALSE(device->batteryOn);
    EXPECT_EQ(device->GetFanMode(), 0);
    uint8_t hardware[] = {0, 0x7e};
    EXPECT_EQ(device->GetHardware(hardware), 0);
    EXPECT_EQ(hardware[0], 'D');
    EXPECT_EQ(hardware[1], 0x7e); // no terminator
    EXPECT_EQ(device->tempSensorReadConvert(0x0c90), 25.03125);
}

TEST_F(BenchtopDeviceTest, OptionTableIsReturnedEvenIfTheCallerHasOne)
{
    void* table = nullptr;
    size_t size = 0;
    EXPECT_EQ(device->GetOptionsTable(&table, &size), 0);
    EXPECT_EQ(table, optBenchtop_Tbl);
    EXPECT_EQ(size, 128u);
    int other = 0;
    table = &other;
    size = 0;
    EXPECT_EQ(device->GetOptionsTable(&table, &size), -3);
    EXPECT_EQ(table, optBenchtop_Tbl);
    EXPECT_EQ(size, 128u);
    table = nullptr;
    EXPECT_EQ(device->GetOptionsTable(&table, nullptr), -3);
    EXPECT_EQ(table, optBenchtop_Tbl);
    size = 0;
    EXPECT_EQ(device->GetOptionsTable(nullptr, &size), -3);
    EXPECT_EQ(size, 128u);
}

TEST_F(BenchtopDeviceTest, OptionTextIsCopiedAtExactlyItsSize)
{
    uint8_t value[16];
    EXPECT_EQ(device->GetOption(value, sizeof value), ERR_FAILED);

    const PersistentDataTestPeer peer(recording, g_benchtopModelsTable);
    inside().set_settings(peer.data);
    peer.data->getSettings()->options = 0x009E; // code 14: 20 GHz, MOD, LP
    std::memset(value, 0x7e, sizeof value);
    EXPECT_EQ(device->GetOption(value, 4), 0);
    EXPECT_EQ(std::memcmp(value, "20G,\x7e", 5), 0);
    EXPECT_EQ(device->GetOption(value, 15), 0);
    EXPECT_EQ(std::memcmp(value, "20G,MOD,LP\0\0\0\0\0\x7e", 16), 0);
    inside().set_settings(nullptr);
}

TEST_F(BenchtopDeviceTest, TestsAreNotRegisteredWithoutATestManager)
{
    EXPECT_EQ(inside().bit_manager(), nullptr);
    EXPECT_EQ(device->bit_register(), -1);
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_ERR, "Failed regitering bit tests"}}));
}

// ---- power button

std::atomic<int> g_presses;

TEST_F(BenchtopDeviceTest, PowerButtonIsARisingEdgeOfPinTwo)
{
    wiringPiSetup();
    trace();
    g_presses = 0;
    EXPECT_TRUE(device->SetupPowerButtonIrq([] { ++g_presses; }));
    EXPECT_TRUE(expect_trace(trace(), "pin 2 isr rising"));
    board->gpio().drive(2, 1);
    board->gpio().drive(2, 0);
    ASSERT_TRUE(board->gpio().wait_for_handlers());
    EXPECT_EQ(g_presses, 1);
}

TEST_F(BenchtopDeviceTest, PowerButtonWithoutItsInterruptIsLogged)
{
    board->gpio().refuse_isr(true);
    EXPECT_FALSE(device->SetupPowerButtonIrq([] {}));
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{
                                {LOG_USER | LOG_ERR, "SetupPowerButtonIrq: unable to setup ISR on pin 2"}}));
}

TEST_F(BenchtopDeviceTest, ReleaseIsAwaitedByBit40EveryFiftyMilliseconds)
{
    // Released at the third read of the loop; the two reads before the loop do not count.
    expander().drive(Mcp23017::kB, 0x40, 0x40);
    std::thread waiter([&] { device->WaitPowerButtonRelease(); });
    ASSERT_TRUE(board->clock().wait_for_sleepers(1));
    board->clock().advance(50'000);
    ASSERT_TRUE(board->clock().wait_for_sleepers(1));
    expander().drive(Mcp23017::kB, 0x40, 0x00);
    board->clock().advance(50'000);
    waiter.join();
    EXPECT_TRUE(expect_trace(trace(), R"(
        i2c 0x20 open
        i2c 0x20 [0x11] -> 0x00
        i2c 0x20 [0x13] -> 0x60
        i2c 0x20 [0x13] -> 0x60
        delay 50000
        i2c 0x20 [0x13] -> 0x60
        delay 50000
        i2c 0x20 [0x13] -> 0x20
    )"));
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(BenchtopDeviceTest, ReleasedButtonEndsTheWaitAtOnceRegardlessOfTheArmedBit)
{
    expander().drive(Mcp23017::kB, 0x40, 0x00);
    device->WaitPowerButtonRelease();
    EXPECT_TRUE(expect_trace(trace(), R"(
        i2c 0x20 open
        i2c 0x20 [0x11] -> 0x00
        i2c 0x20 [0x13] -> 0x20
        i2c 0x20 [0x13] -> 0x20
    )"));
}

TEST_F(BenchtopDeviceTest, ReleaseIsNotAwaitedWithoutTheExpander)
{
    sim_board::insert_fault(board->i2c(), 0x20)->absent(true);
    device->WaitPowerButtonRelease();
    EXPECT_TRUE(expect_trace(trace(), "i2c 0x20 open -> ENXIO"));
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{
                                {LOG_USER | LOG_ERR, "WaitPowerButtonRelease: expander 20h not reachable"}}));
}

TEST_F(BenchtopDeviceTest, FailedReadEndsTheWaitForTheRelease)
{
    expander().drive(Mcp23017::kB, 0x40, 0x40);
    // Three reads, of two transfers each, succeed.
    sim_board::insert_fault(board->i2c(), 0x20)->refuse_after(6);
    device->WaitPowerButtonRelease();
    EXPECT_TRUE(expect_trace(trace(), R"(
        i2c 0x20 open
        i2c 0x20 [0x11] -> 0x00
        i2c 0x20 [0x13] -> 0x60
        i2c 0x20 [0x13] -> 0x60
        delay 50000
        i2c 0x20 [0x13] -> EREMOTEIO
    )"));
    EXPECT_EQ(logs.lines(),
              (std::vector<LogLine>{
                  {LOG_ERR, "WaitPowerButtonRelease: failed to read GPIO expander, aborting wait"}}));
}

TEST_F(BenchtopDeviceTest, ReadsThatOnlyClearTheInterruptMayFail)
{
    expander().drive(Mcp23017::kB, 0x40, 0x40);
    const auto fault = sim_board::insert_fault(board->i2c(), 0x20);
    fault->not_acknowledging(true);
    device->WaitPowerButtonRelease();
    EXPECT_EQ(trace().size(), 4u); // the loop's read ends the wait
    EXPECT_EQ(logs.lines().size(), 1u);
}

} // namespace
