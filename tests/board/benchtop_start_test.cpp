// The benchtop's start as a whole.

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <vector>

#include <syslog.h>

#include "benchtop_start_bench.h"
#include "orvan_sdk/scpi-parser/scpi-def.h"
#include "orvan_sdk/scpi-parser/scpi_parser.h"
#include "unit/orvan_sdk/bit_bench.h"

using namespace board_test;
using namespace HaldeElec::Orvan;
using orvan_test::LogLine;
using sim_board::expect_trace;
using Lines = std::vector<std::string>;

namespace {

template <std::atomic<bool> Scpi_Orvanx::*kRuns>
struct MonitorInside {
    friend bool temperature_thread_runs(Scpi_Orvanx& service) { return service.*kRuns; }
};
bool temperature_thread_runs(Scpi_Orvanx& service);
template struct MonitorInside<&Scpi_Orvanx::m_runTemperatureThread>;

TEST_F(BenchtopStart, TakesItsStepsInThisOrder)
{
    store(settled_settings());
    start_and_settle();
    EXPECT_TRUE(expect_trace(steps(), R"(
        debug OrvanConnBenchtop::OrvanConnBenchtop constructor is start @@
        pins setup
        spi open /dev/spidev0.1
        pins setup
        delay 20000
        i2c 0x24 open
        delay 1000000
        eeprom read
        log 6 [CPersistentData] readEeprom: read 1024 bytes, ok
        log 6 [CPersistentData] readFSBackup: read 1024 bytes, ok
        log 6 CPersistentData::readData
        log 6 OVX3654B
        module 1: *TST?
        module 2: *TST?
        module 3: *TST?
        module 4: *TST?
        module 1: setup
        module 2: setup
        module 3: setup
        module 4: setup
        log 3 [Orvan Service]: Network configuration: Static eth0 10.0.0.2 255.255.255.0 10.0.0.1 02:00:00:00:00:02
        module 1: :SYST:INF:CAL?
        module 1: :SYST:INF:FPGA?
        module 1: :SYST:INF:SCPI?
        module 1: :ROSC:OUTP:FREQ?
        module 2: :SYST:INF:CAL?
        module 2: :SYST:INF:FPGA?
        module 2: :SYST:INF:SCPI?
        module 2: :ROSC:OUTP:FREQ?
        module 3: :SYST:INF:CAL?
        module 3: :SYST:INF:FPGA?
        module 3: :SYST:INF:SCPI?
        module 3: :ROSC:OUTP:FREQ?
        module 4: :SYST:INF:CAL?
        module 4: :SYST:INF:FPGA?
        module 4: :SYST:INF:SCPI?
        module 4: :ROSC:OUTP:FREQ?
        log 6 option LP applied
        i2c 0x24 open
        log 6 [CPersistentData] readData modelname = OVX3654B
        log 6 [CPersistentData] readData hostname = bench-4
        debug Temperature: 0.000000
        debug OrvanBenchtopDevice::fanSpeed start
        spi fan: 00 00 7f -> ff ff ff
    )"));
    EXPECT_TRUE(logs.wait_for(LOG_INFO, "ThreadRunTempratureFunction: thread running\n"));
    EXPECT_EQ(sudo_calls(), "sudo /usr/local/bin/he_get_net_config.sh\n"
                            "sudo /usr/local/bin/he_set_hostname.sh bench-4\n");
    const std::string output = out->text();
    EXPECT_LT(output.find("OrvanBenchtopDevice::read eeprom data done\n"), output.find("EEPROM settings:\n"));
}

TEST_F(BenchtopStart, EndsInitializedAndOnChannelOne)
{
    store(settled_settings());
    start_and_settle();
    EXPECT_TRUE(device->Initialized());
    EXPECT_FALSE(device->Connected());
    EXPECT_EQ(device->device_type_product, BenchtopDevice);
    EXPECT_FALSE(device->batteryOn);
    EXPECT_EQ(device->GetFanMode(), 0);
    EXPECT_STREQ(device->getDeviceArch()->model, "OVX3654B");
    EXPECT_EQ(inside().bit_manager(), BITManager::getInstance(0));
    EXPECT_EQ(selected(), 1u);

    Scpi_Orvanx* const service = Scpi_Orvanx::getInstance();
    EXPECT_EQ(service->getSelectedChannel(), 1);
    EXPECT_EQ(service->getNumberofChannels(), 4);
    EXPECT_EQ(service->getScpiPort(), 5025);
    for (const bool live : service->m_isLive) {
        EXPECT_TRUE(live);
    }
    EXPECT_EQ(board->clock().sleepers(), threads);
    EXPECT_EQ(logs.count(LOG_ERR, "HW initialization failure"), 0u);
}

TEST_F(BenchtopStart, CompletesTheRecordOfEveryChannel)
{
    store(settled_settings());
    start_and_settle();
    for (int channel = 1; channel <= 4; ++channel) {
        EXPECT_STREQ(record(channel).SYSTEM.Model, "OVX3654B") << channel;
        EXPECT_EQ(record(channel).ANALOGOUTPUT.Frequency, 1'000'000'000) << channel;
        EXPECT_EQ(record(channel).CHANNEL.State, On) << channel;
    }
    EXPECT_EQ(files.object_size(), static_cast<long>(4 * sizeof(ORVAN_CONFIG)));
}

TEST_F(BenchtopStart, RegistersItsTestsAndReportsThoseOfPowerUp)
{
    store(settled_settings());
    start_and_settle();
    BITManager* const tests = BITManager::getInstance(0);
    Lines names;
    for (const eBitType type : {PBIT, CBIT}) {
        bitReport_t report = {};
        for (int row = 0; tests->getTestResult(type, row, report); ++row) {
            names.emplace_back(report.testName);
        }
    }
    EXPECT_EQ(names, (Lines{"EEPROM test", "MODULES test", "FAN test", "TEMP test", "MODULES test"}));
    EXPECT_EQ(test_result(PBIT, kEepromTest), (TestResult{BIT_PASS, 0}));
    // This machine has no USB links to modules; the error word shows that all of them answer.
    EXPECT_EQ(test_result(PBIT, kModulesTest), (TestResult{BIT_FAIL, 0}));
    EXPECT_EQ(test_result(CBIT, kFanTest), (TestResult{BIT_PASS, 0}));
    for (const eBitType type : {PBIT, CBIT}) {
        const BITType_t& kind = orvan_test::kind_of(*tests, type);
        for (int row = 0; row < kind.testCount; ++row) {
            EXPECT_EQ(kind.testRecords[row].object, device.get()) << kind.testTable[row].testName;
        }
    }
}

TEST_F(BenchtopStart, BringsTheModulesUpStepByStep)
{
    store(settled_settings());
    Scpi_Orvanx* const service = Scpi_Orvanx::getInstance();
    service->setNumberofChannels(2); // neither is the value set by the start
    service->setSelectedChannel(3);
    // Each step finds the results of the steps before it.
    module(1).on_request([&](const std::string& request) {
        const char* const step = request == "*TST?\r\n" ? "wait"
                                 : request.starts_with(":SYST:INF:") || request.starts_with(":ROSC:")
                                     ? "data"
                                     : "setup";
        const int channel = service->getSelectedChannel();
        const int channels = service->getNumberofChannels();
        const char* const device_is =
            static_cast<const userContext_t*>(scpi_context.user_context)->ptrDevice != nullptr ? ", device"
                                                                                               : "";
        const char* const records = service->get_channelDB(1) != nullptr ? ", records" : "";
        const char* const tested =
            test_result(PBIT, kModulesTest).result != BIT_NOT_PERFORMED ? ", tested" : "";
        board->trace().add("%s: channel %d of %d%s%s%s", step, channel, channels, device_is, tested, records);
    });
    bool polls_at_options = true;
    logs.on_line([&](const LogLine& line) {
        if (line.text == "option LP applied") {
            polls_at_options = temperature_thread_runs(*service);
        }
    });
    start();
    logs.on_line({});
    pass(kSettlingUs);
    Lines found = board->trace().lines_with({"wait: ", "setup: ", "data: "});
    found.erase(std::unique(found.begin(), found.end()), found.end());
    EXPECT_EQ(found, (Lines{"wait: channel 1 of 4, device", "setup: channel 1 of 4, device, tested, records",
                            "data: channel 1 of 4, device, tested, records"}));
    EXPECT_FALSE(polls_at_options);
    EXPECT_TRUE(temperature_thread_runs(*service));
}

/** An instrument with this many channels, whose start uncouples each of them. */
struct Uncoupling {
    const char* model;
    uint8_t channels;
    const char* accesses;
};
class BenchtopStartOf : public BenchtopStart, public testing::WithParamInterface<Uncoupling> {};

TEST_P(BenchtopStartOf, TakesEveryChannelOutOfCoupling)
{
    EEPROM_DEVICE_SETTINGS record = settled_settings();
    std::strcpy(record.modelName, GetParam().model);
    record.numDevices = GetParam().channels;
    store(record);
    start_and_settle();
    Lines lines = board->trace().lines_with({"i2c "});
    const auto opened = [](const std::string& line) { return line == "i2c 0x24 open"; };
    // The first is the hardware set-up; the handles on 0x20 come before the second.
    const auto set_up = std::find_if(lines.begin(), lines.end(), opened);
    const auto second = std::find_if(set_up + 1, lines.end(), opened);
    ASSERT_NE(second, lines.end());
    lines.erase(lines.begin(), second - 2);
    EXPECT_TRUE(expect_trace(lines, GetParam().accesses));
    EXPECT_EQ(selected(), 1u);
}

// Starting from the state after set-up: 0x88 at 0x24 and 0x24 at 0x20.
INSTANTIATE_TEST_SUITE_P(Models, BenchtopStartOf,
                         testing::Values(Uncoupling{"OVX3651B", 1, R"(
        i2c 0x20 open
        i2c 0x20 open
        i2c 0x24 open
        i2c 0x24 [0x12] -> 0x88
        i2c 0x24 [0x12] = 0x88
        i2c 0x20 [0x12] -> 0x24
        i2c 0x20 [0x12] = 0x24
    )"},
                                         Uncoupling{"OVX3652B", 2, R"(
        i2c 0x20 open
        i2c 0x20 open
        i2c 0x24 open
        i2c 0x24 [0x12] -> 0x88
        i2c 0x24 [0x12] = 0x88
        i2c 0x20 [0x12] -> 0x24
        i2c 0x20 [0x12] = 0x24
        i2c 0x20 open
        i2c 0x20 open
        i2c 0x24 open
        i2c 0x24 [0x12] -> 0x88
        i2c 0x24 [0x12] = 0x8c
        i2c 0x20 [0x12] -> 0x24
        i2c 0x20 [0x12] = 0x24
    )"},
                                         Uncoupling{"OVX3654B", 4, R"(
        i2c 0x20 open
        i2c 0x20 open
        i2c 0x24 open
        i2c 0x24 [0x12] -> 0x88
        i2c 0x24 [0x12] = 0x88
        i2c 0x20 [0x12] -> 0x24
        i2c 0x20 [0x12] = 0x24
        i2c 0x20 open
        i2c 0x20 open
        i2c 0x24 open
        i2c 0x20 [0x12] -> 0x24
        i2c 0x20 [0x12] = 0x25
        i2c 0x20 [0x12] -> 0x25
        i2c 0x20 [0x12] = 0x25
        i2c 0x20 open
        i2c 0x20 open
        i2c 0x24 open
        i2c 0x24 [0x12] -> 0x88
        i2c 0x24 [0x12] = 0x8a
        i2c 0x20 [0x12] -> 0x25
        i2c 0x20 [0x12] = 0x21
        i2c 0x20 open
        i2c 0x20 open
        i2c 0x24 open
        i2c 0x24 [0x12] -> 0x8a
        i2c 0x24 [0x12] = 0x8e
        i2c 0x20 [0x12] -> 0x21
        i2c 0x20 [0x12] = 0x21
    )"}),
                         [](const auto& tested) { return std::string(tested.param.model); });

} // namespace
