// Set-up of the portable's hardware, and its operations.

#include <cstring>

#include "orvan_sdk/bit/bit_manager.h"
#include "orvan_sdk/bit/bit_tests.h"
#include "orvan_sdk/lxi/PersistentData.h"
#include "orvan_sdk/lxi/option_tables.h"
#include "orvan_sdk/orvan_sdk.h"
#include "portable_bench.h"
#include "recording_handler.h"
#include "support/persistent_data_peer.h"
#include "unit/orvan_sdk/bit_bench.h"

using namespace board_test;

namespace {

constexpr const char* kPins = R"(
    pins setup
    pin 15 input
    pin 26 output
    pin 27 output
    pin 27 = 1
    pin 16 output
    pin 11 output
    pin 16 = 1
    pin 11 = 1
    pin 26 = 1
    pin 22 input
    pin 0 output
    pin 0 = 1
)";
constexpr const char* kChargerSetUp = R"(
    i2c 0x09 open
    i2c 0x09 [0x12] -> 0x0041
    i2c 0x09 [0x12] = 0x8041
    i2c 0x09 [0x3f] = 0x7f00
    i2c 0x09 [0x14] = 0x0800
    i2c 0x09 [0x31] = 0x0237
    i2c 0x09 [0x12] = 0x860e
)";
constexpr const char* kExpanderSetUp = R"(
    i2c 0x20 open
    i2c 0x20 [0x0a] = 0x00
    i2c 0x20 [0x0b] = 0x00
    i2c 0x20 [0x14] = 0x80
    i2c 0x20 [0x15] = 0x05
    i2c 0x20 [0x00] = 0x03
    i2c 0x20 [0x01] = 0xf8
    delay 2000000
    pin 27 = 0
)";
constexpr const char* kBatteryTest = R"(
    i2c 0x0b open
    i2c 0x0b [0x0d] -> 0x0050
)";

class PortableHardware : public PortableTest {
protected:
    PortableHardware() { charger->set(0x12, 0x0041); }

    sim_board::SelfAdvancing self{board->clock()};
};

TEST_F(PortableHardware, IsSetUpInThisOrder)
{
    EXPECT_TRUE(device->InitHW());
    EXPECT_TRUE(expect_trace(trace(), std::string(kPins) + kChargerSetUp + kExpanderSetUp + kBatteryTest));
    EXPECT_TRUE(peer.battery_is_alive());
    EXPECT_EQ(port_a(), 0x80) << "the module has power";
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(PortableHardware, ThatIsNotFittedIsSkipped)
{
    for (const uint8_t chip : {kCharger, kExpander, kBattery}) {
        insert_fault(board->i2c(), chip)->absent(true);
    }
    EXPECT_TRUE(device->InitHW());
    EXPECT_TRUE(expect_trace(trace(), std::string(kPins) + R"(
        i2c 0x09 open -> ENXIO
        i2c 0x20 open -> ENXIO
        i2c 0x0b open -> ENXIO
    )"));
    EXPECT_FALSE(peer.battery_is_alive());
    EXPECT_EQ(board->gpio().level(27), 1);
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(PortableHardware, AFailingChargerEndsTheSetUpBeforeTheExpander)
{
    for (size_t acknowledged = 0; acknowledged < 7; ++acknowledged) {
        SCOPED_TRACE(acknowledged);
        const auto fault = insert_fault(board->i2c(), kCharger);
        fault->refuse_after(acknowledged);
        logs.clear();
        trace();
        EXPECT_FALSE(device->InitHW());
        EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_ERR, "InitHW: battery controller setup failed"}}));
        EXPECT_TRUE(board->trace().lines_with({"i2c 0x20", "i2c 0x0b", "delay"}).empty());
        EXPECT_EQ(board->trace().lines_with({"i2c 0x09"}).size(), 7u) << "every access is made";
        EXPECT_EQ(port_a(), 0) << "port A keeps its reset state";
        EXPECT_FALSE(peer.battery_is_alive());
        fault->refuse_after(std::nullopt);
    }
}

TEST_F(PortableHardware, AnUnreadableChargerRegisterCountsAsZero)
{
    insert_fault(board->i2c(), kCharger)->refuse_after(0);
    device->InitHW();
    EXPECT_TRUE(expect_trace(board->trace().lines_with({"i2c 0x09"}), R"(
        i2c 0x09 open
        i2c 0x09 [0x12] -> EREMOTEIO
        i2c 0x09 [0x12] = 0x8000 -> EREMOTEIO
        i2c 0x09 [0x3f] = 0x7f00 -> EREMOTEIO
        i2c 0x09 [0x14] = 0x0800 -> EREMOTEIO
        i2c 0x09 [0x31] = 0x0237 -> EREMOTEIO
        i2c 0x09 [0x12] = 0x860e -> EREMOTEIO
    )"));
}

TEST_F(PortableHardware, AFailingExpanderEndsTheSetUpBeforeTheBattery)
{
    for (size_t acknowledged = 0; acknowledged < 6; ++acknowledged) {
        SCOPED_TRACE(acknowledged);
        const auto fault = insert_fault(board->i2c(), kExpander);
        fault->refuse_after(acknowledged);
        logs.clear();
        trace();
        EXPECT_FALSE(device->InitHW());
        EXPECT_EQ(logs.lines(),
                  (std::vector<LogLine>{{LOG_ERR, "InitHW: GPIO expander initialization failed"}}));
        EXPECT_EQ(board->trace().lines_with({"i2c 0x20"}).size(), 7u);
        EXPECT_TRUE(board->trace().lines_with({"i2c 0x0b", "delay", "pin 27 = 0"}).empty());
        EXPECT_FALSE(peer.battery_is_alive());
        fault->refuse_after(std::nullopt);
    }
}

TEST_F(PortableHardware, ABatteryThatDoesNotReplyIsNoFailure)
{
    EXPECT_TRUE(device->InitHW());
    EXPECT_TRUE(peer.battery_is_alive());
    insert_fault(board->i2c(), kBattery)->not_acknowledging(true);
    EXPECT_TRUE(device->InitHW());
    EXPECT_FALSE(peer.battery_is_alive());
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_INFO, "InitHW battery doesn't reply"}}));
}

using PortableOperations = PortableHardware;

TEST_F(PortableOperations, WithoutRoutingSucceedAndTouchNothing)
{
    using D = IOrvanDeviceManager;
    device->SetSelectChannel(1);
    for (const auto value : {D::Off, D::On}) {
        EXPECT_EQ(device->SetRFOutput(value), 0);
        EXPECT_EQ(device->SetAMModulationSource(value), 0);
        EXPECT_EQ(device->SetFMModulationSource(value), 0);
        EXPECT_EQ(device->SetPulseModulationSource(value), 0);
        EXPECT_EQ(device->SetTriggerInpImp(value), 0);
    }
    for (const auto source : {D::External, D::Bus, D::Timer, D::SPI}) {
        EXPECT_EQ(device->SetTriggerSource(source), 0);
    }
    EXPECT_EQ(device->SetTriggerCouple(1, eCoupling_all), 0);
    device->RunKbdServer();
    EXPECT_TRUE(trace().empty());
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(PortableOperations, OnlyTriggerOperationsReachTheHandlerAndIgnoreItsResult)
{
    using D = IOrvanDeviceManager;
    RecordingHandler recording;
    recording.results = {{1, -5}};
    IDeviceConnectionHandler* const own_handler = device->GetSPIhandler();
    device->SetSPIhandler(&recording);
    device->SetSelectChannel(1);
    for (const auto source : {D::External, D::Bus, D::Timer, D::SPI}) {
        EXPECT_EQ(device->SetTriggerSource(source), 0);
    }
    D::OnOff value = D::Off;
    EXPECT_EQ(device->SetTriggerInpImp(D::On), 0);
    EXPECT_EQ(device->GetTriggerInpImp(value), 0);
    EXPECT_EQ(value, D::On);
    EXPECT_EQ(device->SetRFOutput(D::On), 0);
    EXPECT_EQ(device->SetAMModulationSource(D::On), 0);
    EXPECT_EQ(device->SetFMModulationSource(D::On), 0);
    EXPECT_EQ(device->SetPulseModulationSource(D::On), 0);
    EXPECT_EQ(device->SetTriggerCouple(1, 1), 0);
    device->SetSPIhandler(own_handler);
    EXPECT_EQ(recording.calls, (std::vector<std::string>{"1 source 0", "1 source 1", "1 source 2",
                                                         "1 source 3", "1 impedance 1", "1 impedance? 1"}));
}

TEST_F(PortableOperations, TheTriggerImpedanceIsKeptForEachChannel)
{
    using D = IOrvanDeviceManager;
    D::OnOff value = D::On;
    device->SetSelectChannel(1);
    EXPECT_EQ(device->GetTriggerInpImp(value), 0);
    EXPECT_EQ(value, D::Off);
    EXPECT_EQ(device->SetTriggerInpImp(D::On), 0);
    device->SetSelectChannel(2);
    EXPECT_EQ(device->GetTriggerInpImp(value), 0);
    EXPECT_EQ(value, D::Off);
    device->SetSelectChannel(1);
    EXPECT_EQ(device->GetTriggerInpImp(value), 0);
    EXPECT_EQ(value, D::On);
    EXPECT_EQ(device->SetTriggerInpImp(D::Off), 0);
    device->GetTriggerInpImp(value);
    EXPECT_EQ(value, D::Off);
}

TEST_F(PortableOperations, TheHardwareIsOneLetterWithoutATerminator)
{
    uint8_t value[] = {0xa5, 0xa5};
    EXPECT_EQ(device->GetHardware(value), 0);
    EXPECT_EQ(value[0], 'D');
    EXPECT_EQ(value[1], 0xa5);
    EXPECT_EQ(device->detectDevicePin(), 0);
}

TEST_F(PortableOperations, TheOptionsTableIsReturnedWhateverTheResult)
{
    void* table = nullptr;
    size_t size = 0;
    EXPECT_EQ(device->GetOptionsTable(&table, &size), 0);
    EXPECT_EQ(table, optPortable_Tbl);
    EXPECT_EQ(size, 128u);
    int other = 0;
    table = &other;
    size = 0;
    EXPECT_EQ(device->GetOptionsTable(&table, &size), -3);
    EXPECT_EQ(table, optPortable_Tbl);
    EXPECT_EQ(size, 128u);
    table = nullptr;
    EXPECT_EQ(device->GetOptionsTable(&table, nullptr), -3);
    EXPECT_EQ(table, optPortable_Tbl);
    size = 0;
    EXPECT_EQ(device->GetOptionsTable(nullptr, &size), -3);
    EXPECT_EQ(size, 128u);
}

TEST_F(PortableOperations, OptionsNeedSettings)
{
    uint8_t value[32];
    std::memset(value, 0xa5, sizeof value);
    EXPECT_EQ(device->GetOption(value, sizeof value), -1);
    EXPECT_EQ(value[0], 0xa5);
}

TEST_F(PortableOperations, OptionsFillExactlyTheRequestedSize)
{
    PersistentDataTestPeer settings(*device->GetSPIhandler(), g_portableModelsTable);
    settings->getSettings()->options = 0x081e; // 20 GHz, MOD, BAT
    peer.set_settings(settings.data);
    const std::string text = "20G,MOD,BAT";
    uint8_t value[64];
    for (const size_t size : {0u, 1u, 5u, 11u, 12u, 32u, 63u}) {
        SCOPED_TRACE(size);
        std::memset(value, 0xa5, sizeof value);
        EXPECT_EQ(device->GetOption(value, size), 0);
        std::string expected = text.substr(0, size);
        expected.resize(size);
        EXPECT_EQ(std::string(value, value + size), expected);
        EXPECT_EQ(value[size], 0xa5);
    }
    peer.set_settings(nullptr);
}

TEST_F(PortableOperations, TheTemperatureSensorCounts32ndsOfADegree)
{
    EXPECT_DOUBLE_EQ(device->tempSensorReadConvert(0x0c80), 25.0);
    EXPECT_DOUBLE_EQ(device->tempSensorReadConvert(0x0c90), 25.125);
    EXPECT_DOUBLE_EQ(device->tempSensorReadConvert(0xffff), 511.0 + 31 / 32.0);
    EXPECT_DOUBLE_EQ(device->tempSensorReadConvert(0xabcd0c90), 25.125) << "the low 16 bits count";
    EXPECT_DOUBLE_EQ(device->IOrvanDeviceManager::tempSensorReadConvert(0x0c90), 25.03125);
}

TEST_F(PortableOperations, FiveTestsAreRegisteredWithTheDeviceAsTheirObject)
{
    BITManager* const tests = BITManager::getInstance(0);
    const int before[] = {tests->getTestsNumber(PBIT), tests->getTestsNumber(CBIT)};
    peer.set_bit_manager(tests);
    EXPECT_EQ(device->bit_register(), 0);
    EXPECT_EQ(tests->getTestsNumber(PBIT), before[PBIT] + 2);
    EXPECT_EQ(tests->getTestsNumber(CBIT), before[CBIT] + 3);
    const auto name = [&](eBitType type, int offset) {
        bitReport_t report = {};
        tests->getTestResult(type, before[type] + offset, report);
        return std::string(report.testName);
    };
    EXPECT_EQ(name(PBIT, 0), kEepromTest);
    EXPECT_EQ(name(PBIT, 1), kModulesTest);
    EXPECT_EQ(name(CBIT, 0), kFanTest);
    EXPECT_EQ(name(CBIT, 1), kTempTest);
    EXPECT_EQ(name(CBIT, 2), kModulesTest);
    for (const eBitType type : {PBIT, CBIT}) {
        const BITType_t& kind = orvan_test::kind_of(*tests, type);
        for (int row = before[type]; row < kind.testCount; ++row) {
            EXPECT_EQ(kind.testTable[row].object, device.get()) << kind.testTable[row].testName;
            EXPECT_EQ(kind.testRecords[row].object, device.get()) << kind.testTable[row].testName;
        }
    }
}

TEST_F(PortableOperations, WithoutATestManagerNothingIsRegistered)
{
    EXPECT_EQ(device->bit_register(), -1);
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_ERR, "Failed regitering bit tests"}}));
}

TEST(CreatedDevice, IsAPortableEvenOnTheBoardsOfTheOtherPlatforms)
{
    for (const sim_board::BoardWiring* wiring : {&sim_board::kBenchtopWiring, &sim_board::kKsr7000Wiring}) {
        sim_board::InstalledBoard board{*wiring};
        board->spi().set_node_present("/dev/spidev0.1", false); // the start ends at its bus
        orvan_test::LogCapture logs;
        const std::unique_ptr<IOrvanDeviceManager> device(CreateDevice("/dev/null", 4));
        EXPECT_EQ(device->device_type_product, 0);
        EXPECT_NE(dynamic_cast<OrvanPortableDevice*>(device.get()), nullptr);
        EXPECT_EQ(logs.count(LOG_INFO, "creating Portable device"), 1u);
        EXPECT_EQ(logs.count(LOG_ERR, "[OrvanPortableDevice] ConfigChannelSPI failed - SPI not initialized"),
                  1u);
        EXPECT_TRUE(board->trace().lines_with({"pin ", "i2c"}).empty());
    }
}

} // namespace
