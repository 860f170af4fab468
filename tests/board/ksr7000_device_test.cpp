// Operations of the third platform, and its connection handler.

#include <array>
#include <cstring>

#include "ksr7000_bench.h"
#include "orvan_sdk/OrvanDebug.h"
#include "orvan_sdk/bit/bit_manager.h"
#include "orvan_sdk/ksr7000/OrvanConnKsr7000.h"
#include "orvan_sdk/lxi/option_tables.h"
#include "recording_handler.h"
#include "support/persistent_data_peer.h"
#include "unit/orvan_sdk/bit_bench.h"

using namespace board_test;
using namespace HaldeElec::Orvan;
using orvan_test::LogLine;
using sim_board::expect_trace;
using D = IOrvanDeviceManager;

namespace {

/** With settings, and a handler that records its calls. */
class Ksr7000Operations : public Ksr7000Test {
protected:
    void SetUp() override
    {
        own_handler = device->GetSPIhandler();
        device->SetSPIhandler(&recording);
        inside().set_settings(settings.data);
        settings->getSettings()->numDevices = 1;
        device->SetSelectChannel(1);
        for (const auto& bytes : {std::array<uint8_t, 2>{0x00, 0x00}, std::array<uint8_t, 2>{0x12, 0x5a}}) {
            board->expander(kPorts).write(bytes); // port A: outputs
        }
    }
    void TearDown() override
    {
        inside().set_settings(nullptr);
        device->SetSPIhandler(own_handler);
    }
    int switch_rf(D::OnOff value, uint32_t channel)
    {
        device->SetSelectChannel(channel);
        return device->SetRFOutput(value);
    }

    RecordingHandler recording;
    PersistentDataTestPeer settings{recording, g_ksr7000ModelsTable};
    IDeviceConnectionHandler* own_handler = nullptr;
};

// ---- routing

TEST_F(Ksr7000Operations, WithoutRoutingSucceedAndCallNothing)
{
    recording.results = {{1, -5}};
    for (const auto source : {D::External, D::Bus, D::Timer, D::SPI}) {
        EXPECT_EQ(device->SetTriggerSource(source), 0);
    }
    EXPECT_EQ(device->SetTriggerCouple(1, eCoupling_all), 0);
    for (const auto value : {D::Off, D::On}) {
        EXPECT_EQ(device->SetAMModulationSource(value), 0);
        EXPECT_EQ(device->SetFMModulationSource(value), 0);
        EXPECT_EQ(device->SetPulseModulationSource(value), 0);
    }
    EXPECT_TRUE(recording.calls.empty());
    EXPECT_TRUE(trace().empty());
}

TEST_F(Ksr7000Operations, TriggerImpedanceReachesTheHandlerAndIgnoresItsResult)
{
    recording.results = {{1, -5}};
    D::OnOff value = D::Off;
    EXPECT_EQ(device->SetTriggerInpImp(D::On), 0);
    EXPECT_EQ(device->GetTriggerInpImp(value), 0);
    EXPECT_EQ(value, D::On);
    EXPECT_EQ(device->SetTriggerInpImp(D::Off), 0);
    EXPECT_EQ(device->GetTriggerInpImp(value), 0);
    EXPECT_EQ(value, D::Off);
    EXPECT_EQ(recording.calls, (std::vector<std::string>{"1 impedance 1", "1 impedance? 1", "1 impedance 0",
                                                         "1 impedance? 0"}));
}

TEST_F(Ksr7000Operations, TriggerImpedanceIsKeptForEachChannelAndTouchesNothing)
{
    device->SetSPIhandler(own_handler);
    D::OnOff value = D::On;
    device->SetSelectChannel(1);
    EXPECT_EQ(device->SetTriggerInpImp(D::On), 0);
    device->SetSelectChannel(2);
    device->GetTriggerInpImp(value);
    EXPECT_EQ(value, D::Off);
    device->SetSelectChannel(1);
    device->GetTriggerInpImp(value);
    EXPECT_EQ(value, D::On);
    EXPECT_TRUE(trace().empty());
}

TEST_F(Ksr7000Operations, RfOutputIsOneBitOfPortA)
{
    EXPECT_EQ(device->SetRFOutput(D::On), 0);
    EXPECT_EQ(device->SetRFOutput(D::Off), 0);
    EXPECT_EQ(device->SetRFOutput(D::Off), 0);
    EXPECT_TRUE(expect_trace(trace(), R"(
        i2c 0x20 open
        i2c 0x20 [0x12] -> 0x5a
        i2c 0x20 [0x12] = 0x7a
        i2c 0x20 open
        i2c 0x20 [0x12] -> 0x7a
        i2c 0x20 [0x12] = 0x5a
        i2c 0x20 open
        i2c 0x20 [0x12] -> 0x5a
        i2c 0x20 [0x12] = 0x5a
    )"));
    EXPECT_TRUE(recording.calls.empty()) << "the handler is not involved";
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(Ksr7000Operations, RfOutputOfAMissingChannelTouchesNothing)
{
    for (const uint32_t channel : {2u, 0u, 5u, 0xffffffffu}) {
        EXPECT_EQ(switch_rf(D::On, channel), -1) << channel;
    }
    settings->getSettings()->numDevices = 4; // of another platform's model
    for (const uint32_t channel : {2u, 4u, 0u}) {
        EXPECT_EQ(switch_rf(D::On, channel), -1) << channel;
    }
    EXPECT_EQ(switch_rf(D::On, 1), 0);
    EXPECT_EQ(trace().size(), 3u);
    settings->getSettings()->numDevices = 0;
    EXPECT_EQ(switch_rf(D::On, 1), -1);
    EXPECT_TRUE(trace().empty());
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(Ksr7000Operations, RfOutputNeedsSettings)
{
    inside().set_settings(nullptr);
    EXPECT_EQ(device->SetRFOutput(D::On), -1);
    EXPECT_TRUE(trace().empty());
}

TEST_F(Ksr7000Operations, RfOutputNeedsTheExpander)
{
    fault(kPorts)->absent(true);
    EXPECT_EQ(device->SetRFOutput(D::On), -1);
    EXPECT_TRUE(expect_trace(trace(), "i2c 0x20 open -> ENXIO"));
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(Ksr7000Operations, RfOutputThatFailsIsLogged)
{
    const auto chip = fault(kPorts);
    for (const size_t acknowledged : {0u, 1u, 2u}) {
        chip->refuse_after(acknowledged);
        EXPECT_EQ(device->SetRFOutput(D::On), -1);
    }
    chip->refuse_after(3);
    EXPECT_EQ(device->SetRFOutput(D::On), 0);
    const LogLine line{LOG_ERR, "SetRFOutput: failed to set RF output for channel 1"};
    EXPECT_EQ(logs.lines(), std::vector<LogLine>(3, line));
}

// ---- identity and options

TEST_F(Ksr7000Operations, ConstantsOfTheClass)
{
    EXPECT_EQ(device->device_type_product, Ksr7000Device);
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

TEST_F(Ksr7000Operations, OptionTableIsReturnedEvenIfTheCallerHasOne)
{
    void* table = nullptr;
    size_t size = 0;
    EXPECT_EQ(device->GetOptionsTable(&table, &size), 0);
    EXPECT_EQ(table, optKsr7000_Tbl);
    EXPECT_EQ(size, 128u);
    int other = 0;
    table = &other;
    size = 0;
    EXPECT_EQ(device->GetOptionsTable(&table, &size), -3);
    EXPECT_EQ(table, optKsr7000_Tbl);
    EXPECT_EQ(size, 128u);
}

TEST_F(Ksr7000Operations, OptionTextIsCopiedAtExactlyItsSize)
{
    settings->getSettings()->options = 0x011E; // code 14: 20 GHz, MOD, BAT
    uint8_t value[16];
    std::memset(value, 0x7e, sizeof value);
    EXPECT_EQ(device->GetOption(value, 4), 0);
    EXPECT_EQ(std::memcmp(value, "20G,\x7e", 5), 0);
    EXPECT_EQ(device->GetOption(value, 15), 0);
    EXPECT_EQ(std::memcmp(value, "20G,MOD,BAT\0\0\0\0\x7e", 16), 0);
    inside().set_settings(nullptr);
    EXPECT_EQ(device->GetOption(value, sizeof value), ERR_FAILED);
}

TEST_F(Ksr7000Operations, FiveTestsAreRegisteredWithTheirManager)
{
    EXPECT_EQ(device->bit_register(), -1);
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_ERR, "Failed regitering bit tests"}}));

    BITManager* const tests = BITManager::getInstance(0);
    inside().set_bit_manager(tests);
    EXPECT_EQ(device->bit_register(), 0);
    EXPECT_EQ(tests->getTestsNumber(PBIT), 2);
    EXPECT_EQ(tests->getTestsNumber(CBIT), 3);
    for (const eBitType type : {PBIT, CBIT}) {
        const BITType_t& kind = orvan_test::kind_of(*tests, type);
        for (int row = 0; row < kind.testCount; ++row) {
            EXPECT_EQ(kind.testRecords[row].object, &*device) << kind.testTable[row].testName;
        }
    }
}

// ---- connection handler

std::vector<std::string> g_debug;

class Ksr7000Bus : public testing::Test {
protected:
    void SetUp() override
    {
        HaldeElec::OrvanDebug::SetLogMode(2);
        HaldeElec::OrvanDebug::RegisterCallback([](const char* line) { g_debug.emplace_back(line); });
        g_debug.clear();
        handler.emplace();
    }
    std::vector<std::string> trace() { return board->trace().take(); }

    sim_board::InstalledBoard board{sim_board::kKsr7000Wiring};
    sim_board::SelfAdvancing self{board->clock()};
    std::optional<OrvanConnKsr7000> handler;
};

TEST_F(Ksr7000Bus, ConstructorLogsItselfAndAccessesNoHardware)
{
    ASSERT_EQ(g_debug.size(), 1u);
    EXPECT_TRUE(g_debug[0].ends_with("]OrvanConnKsr7000::OrvanConnKsr7000 constructor is start @@"))
        << g_debug[0];
    EXPECT_TRUE(trace().empty());
}

TEST_F(Ksr7000Bus, SetUpMakesTheAddressLinesOutputs)
{
    EXPECT_EQ(handler->ConfigChannelSPI(0, 1), 0);
    EXPECT_TRUE(expect_trace(board->trace().lines_with({"pin"}), R"(
        pins setup
        pin 7 output
        pin 21 output
        pin 6 output
        pin 7 = 0
        pin 21 = 0
        pin 6 = 0
    )"));
}

TEST_F(Ksr7000Bus, MessageReachesTheTargetOfItsChannel)
{
    ASSERT_EQ(handler->ConfigChannelSPI(0, 1), 0);
    const struct {
        uint32_t channel;
        const char* lines;
        const char* target;
    } rows[] = {
        {4, "pin 7 = 0\npin 21 = 0\npin 6 = 1\n", "fan: 05 00 -> ff ff"},
        {5, "pin 7 = 1\npin 21 = 0\npin 6 = 1\n", "eeprom: 05 00 -> ff 00"},
    };
    for (const auto& row : rows) {
        uint32_t channel = row.channel;
        handler->SetCommChannel(channel);
        trace();
        const uint8_t sent[] = {0x05, 0x00};
        uint8_t received[2] = {};
        EXPECT_EQ(handler->DataTransfer(sent, received, 2), 0);
        EXPECT_TRUE(expect_trace(trace(), std::string(row.lines) + "pin 11 = 0\ndelay 10\nspi " + row.target +
                                              "\npin 11 = 1\n"));
    }
    for (const uint32_t number : {0u, 1u, 3u, 6u, 77u}) {
        uint32_t channel = number;
        handler->SetCommChannel(channel);
        trace();
        handler->enableMUX();
        EXPECT_TRUE(expect_trace(trace(), R"(
            pin 7 = 1
            pin 21 = 1
            pin 6 = 1
            pin 11 = 0
            delay 10
        )"));
    }
}

TEST_F(Ksr7000Bus, RoutingIsInherited)
{
    uint32_t channel = 1;
    handler->SetCommChannel(channel);
    EXPECT_EQ(handler->setTrgSrc(eCoupling_ch2), 0);
    EXPECT_EQ(handler->SetRFOutput(1), 0);
    EXPECT_EQ(handler->setModSrc(1, 1), 0);
    uint32_t impedance = 1;
    EXPECT_EQ(handler->setTrgImp(impedance), 0);
    impedance = 0;
    EXPECT_EQ(handler->getTrgImp(impedance), 0);
    EXPECT_EQ(impedance, 1u);
    EXPECT_TRUE(trace().empty());
}

TEST_F(Ksr7000Bus, DestructorClosesThePort)
{
    ASSERT_EQ(handler->ConfigChannelSPI(0, 1), 0);
    trace();
    handler.reset();
    EXPECT_TRUE(expect_trace(trace(), "spi close"));
}

TEST_F(Ksr7000Bus, ConverterReadsTheTextAtItsPointer)
{
    int characters[2] = {};
    std::memcpy(characters, "trace", 6);
    EXPECT_EQ(handler->converter(characters), "trace");
}

} // namespace
