// The benchtop's start as a whole, and what it leaves.

#include <algorithm>
#include <atomic>
#include <cstring>
#include <fstream>
#include <mutex>
#include <thread>

#include "benchtop_start_bench.h"
#include "nothrow_new.h"
#include "orvan_sdk/IDeviceConnectionHandler.h"
#include "orvan_sdk/OrvanDebug.h"
#include "orvan_sdk/scpi-parser/scpi-def.h"
#include "orvan_sdk/scpi-parser/scpi_parser.h"
#include "support/known_leak.h"
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
    const std::string told = out->text();
    EXPECT_LT(told.find("OrvanBenchtopDevice::read eeprom data done\n"), told.find("EEPROM settings:\n"));
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
    service->setNumberofChannels(2); // neither is what the start sets
    service->setSelectedChannel(3);
    // What each step finds of the steps before it.
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

/** An instrument with this many channels, and how its start takes each out of coupling. */
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

// ---- the settings

TEST_F(BenchtopStart, LeavesSettingsAloneThatItDoesNotChange)
{
    store(settled_settings());
    const Blob before = eeprom_image();
    const size_t cycles = board->eeprom().write_cycles();
    start_and_settle();
    EXPECT_EQ(board->eeprom().write_cycles(), cycles);
    EXPECT_EQ(eeprom_image(), before);
    EXPECT_EQ(file_image(), before);
}

TEST_F(BenchtopStart, StoresANewSoftwareVersionOnce)
{
    EEPROM_DEVICE_SETTINGS old = settled_settings();
    std::strcpy(old.fwVersion, "1.19.144");
    store(old, 57);
    start_and_settle();
    EXPECT_EQ(eeprom_image(), signed_image(settled_settings(), 58));
    EXPECT_EQ(file_image(), eeprom_image());
    EXPECT_EQ(settings().fwVersion, std::string("1.19.145"));
}

TEST_F(BenchtopStart, StoresWhatModuleOneReportsAgain)
{
    EEPROM_DEVICE_SETTINGS old = settled_settings();
    std::strcpy(old.fpgaVersion, "0.9");
    store(old, 57);
    start_and_settle();
    EXPECT_EQ(eeprom_image(), signed_image(settled_settings(), 58));
}

TEST_F(BenchtopStart, FollowsTheModelOfItsSettings)
{
    EEPROM_DEVICE_SETTINGS other = settled_settings();
    std::strcpy(other.modelName, "OVX6132R");
    store(other);
    start_and_settle();
    EXPECT_EQ(settings().numDevices, 2);
    EXPECT_EQ(settings().maxCwFreq, 8'000'000'000);
    EXPECT_EQ(settings().product_id, 0x61a2);
    EXPECT_EQ(settings().options, 0x0098); // code 8
    EXPECT_EQ(Scpi_Orvanx::getInstance()->getNumberofChannels(), 2);
    EXPECT_EQ(module(1).requests().front(), "*TST?\r\n");
    EXPECT_EQ(module(3).connections(), 0u);
    // The installed channels are those of the routing, too: channel 1 has the switch 0x02 of its row.
    EXPECT_EQ(device->SetTriggerSource(IOrvanDeviceManager::External), 0);
    board->trace().clear();
    EXPECT_EQ(device->SetRFOutput(IOrvanDeviceManager::On), 0);
    EXPECT_EQ(board->trace().lines_with({"i2c 0x20 [0x13] ="}).size(), 1u);
}

TEST_F(BenchtopStart, HoldsTheBusOnlyWhileItReadsOrStoresItsSettings)
{
    EEPROM_DEVICE_SETTINGS old = settled_settings();
    std::strcpy(old.fwVersion, "1.19.144");
    store_in_file(old);
    board->spi().attach("eeprom", nullptr); // so that storing logs an error
    std::vector<std::string> found;
    logs.on_line([&found](const orvan_test::LogLine& line) {
        const char* const step = line.text == "CPersistentData::readData"                        ? "read"
                                 : line.text.starts_with("[CPersistentData] readData modelname") ? "rows"
                                 : line.text.starts_with("CPersistentData::writeData() EEPROM")  ? "write"
                                                                                                 : nullptr;
        if (step == nullptr) {
            return;
        }
        std::mutex& bus = HaldeElec::Orvan::PersistentDataTestPeer::bus_of_instance().mtx;
        bool free = false;
        std::thread([&] {
            free = bus.try_lock();
            if (free) {
                bus.unlock();
            }
        }).join();
        found.push_back(std::string(step) + (free ? ": free" : ": held"));
    });
    start();
    logs.on_line({});
    pass(kSettlingUs);
    EXPECT_EQ(found, (std::vector<std::string>{"read: held", "rows: free", "write: held"}));
}

TEST_F(BenchtopStart, BeginsAnInstrumentWithoutSettingsAsTheFactorysModel)
{
    start_and_settle();
    EXPECT_TRUE(device->Initialized());
    EXPECT_STREQ(device->getDeviceArch()->model, "OVX3651B");
    uint8_t identity[128];
    EXPECT_EQ(device->GetIdentification(identity), 0);
    EXPECT_STREQ(reinterpret_cast<const char*>(identity), "Halde Electronics,OVX3651B,230000,1.19.145");
    EXPECT_EQ(settings().numDevices, 1);
    EXPECT_EQ(settings().product_id, 0x3601);
    EXPECT_EQ(settings().hardwareVersion, 'D');
    EXPECT_STREQ(settings().description, "Halde Electronics Ltd.");
    // MOD and LP are the factory's options; the frequency code comes from the model.
    EXPECT_EQ(settings().options, 0x009E);
    EXPECT_EQ(file_image(), eeprom_image());
    EXPECT_EQ(module(2).connections(), 0u);
}

TEST_F(BenchtopStart, RestoresTheMissingStore)
{
    store_in_file(settled_settings());
    start_and_settle();
    EXPECT_STREQ(settings().serialNum, "240017");
    EXPECT_EQ(eeprom_image(), file_image());
}

TEST_F(BenchtopStart, RestoresAMissingBackup)
{
    store_in_eeprom(settled_settings());
    start_and_settle();
    EXPECT_STREQ(settings().serialNum, "240017");
    EXPECT_EQ(file_image(), eeprom_image());
}

// ---- what stops it

TEST_F(BenchtopStart, WithoutAnSpiPortEndsThere)
{
    board->spi().set_node_present("/dev/spidev0.1", false);
    start();
    EXPECT_EQ(logs.lines(),
              (std::vector<LogLine>{
                  {LOG_ERR, "[OrvanBenchtopDevice] ConfigChannelSPI failed - SPI not initialized"}}));
    EXPECT_FALSE(device->Initialized());
    EXPECT_EQ(inside().bit_manager(), nullptr);
    EXPECT_EQ(CPersistentData::GetInstance(), nullptr);
    EXPECT_EQ(board->clock().sleepers(), 0u);
    EXPECT_TRUE(board->trace().lines_with({"i2c", "delay", "module"}).empty());
}

TEST_F(BenchtopStart, WithoutMemoryForItsBusEndsThere)
{
    refuse_nothrow_new(true);
    start();
    refuse_nothrow_new(false);
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_ERR, "Device connector allocation failure!!!"}}));
    EXPECT_EQ(out->text(), "Device connector allocation failure!!!\n");
    EXPECT_FALSE(device->Initialized());
    EXPECT_EQ(device->device_type_product, BenchtopDevice);
    EXPECT_EQ(device->GetSPIhandler(), nullptr);
    EXPECT_EQ(board->trace().lines(), (Lines{"log 3 Device connector allocation failure!!!"}));
}

TEST_F(BenchtopStart, EmptiesItsDebugLogAndTakesItsMode)
{
    board->spi().set_node_present("/dev/spidev0.1", false);
    const std::string path = "/home/orvan/halde/debug.txt";
    std::ofstream(path) << "of the last run\n";
    device = std::make_unique<OrvanBenchtopDevice>(path.c_str(), 1);
    EXPECT_EQ(HaldeElec::OrvanDebug::GetLogMode(), 1);
    std::ifstream log(path);
    const std::string text{std::istreambuf_iterator<char>(log), {}};
    EXPECT_EQ(text.find("of the last run"), std::string::npos);
    EXPECT_TRUE(text.ends_with("]OrvanConnBenchtop::OrvanConnBenchtop constructor is start @@\n")) << text;
    device = std::make_unique<OrvanBenchtopDevice>(nullptr, 4);
    EXPECT_EQ(HaldeElec::OrvanDebug::GetLogMode(), 4);
}

// ---- what does not

TEST_F(BenchtopStart, ContinuesWithoutAnyExpander)
{
    store(settled_settings());
    i2c_fault(0x20)->absent(true);
    i2c_fault(0x24)->absent(true);
    start_and_settle();
    EXPECT_TRUE(device->Initialized());
    EXPECT_EQ(logs.count(LOG_ERR, "InitHW: external modulations reset failed"), 1u);
    EXPECT_EQ(logs.count(LOG_ERR, "HW initialization failure"), 1u);
    EXPECT_NE(out->text().find("HW initialization failure\n"), std::string::npos);
    for (int channel = 1; channel <= 4; ++channel) {
        EXPECT_EQ(logs.count(LOG_ERR, "setTrgSrc: failed to set trigger source for channel " +
                                          std::to_string(channel)),
                  1u);
    }
    EXPECT_EQ(selected(), 1u);
    EXPECT_EQ(count("spi fan: 00 00 7f -> ff ff ff"), 1u);
}

TEST_F(BenchtopStart, ContinuesWithAnExpanderThatFails)
{
    store(settled_settings());
    i2c_fault(0x24)->not_acknowledging(true);
    start_and_settle();
    EXPECT_TRUE(device->Initialized());
    EXPECT_EQ(logs.count(LOG_ERR, "InitHW: GPIO expander 0x24 initialization failed"), 1u);
    EXPECT_EQ(logs.count(LOG_ERR, "HW initialization failure"), 1u);
}

TEST_F(BenchtopStart, ContinuesFromItsBackupWithoutAnEeprom)
{
    store_in_file(settled_settings());
    board->spi().attach("eeprom", nullptr);
    start_and_settle();
    EXPECT_TRUE(device->Initialized());
    EXPECT_STREQ(settings().serialNum, "240017");
    EXPECT_EQ(file_image(), signed_image(settled_settings(), 57));
}

TEST_F(BenchtopStart, ContinuesWithoutAFactorySetup)
{
    store(settled_settings());
    std::filesystem::remove(files.halde() / "json/ch0.json");
    start_and_settle();
    EXPECT_TRUE(device->Initialized());
    EXPECT_EQ(logs.count(LOG_ERR, "Failed to load default database on boot"), 1u);
    EXPECT_STREQ(record(1).SYSTEM.Model, "OVX3654B") << "the records are still set";
}

TEST_F(BenchtopStart, ContinuesWithoutSharedMemoryForItsRecords)
{
    store(settled_settings());
    files.set_fault(orvan_test::InstrumentFiles::Fault::kOpen);
    const orvan_test::KnownLeak data_that_goes_only_with_the_records;
    start_and_settle();
    EXPECT_TRUE(device->Initialized());
    EXPECT_EQ(Scpi_Orvanx::getInstance()->get_channelDB(1), nullptr);
    EXPECT_EQ(module(4).requests().back(), ":ROSC:OUTP:FREQ?\r\n") << "all have been queried";
}

TEST_F(BenchtopStart, FallsBackToTheFactorySetupWithoutItsBootSetup)
{
    EEPROM_DEVICE_SETTINGS with_setup = settled_settings();
    with_setup.bootDBConfig = 3;
    store(with_setup, 57);
    start_and_settle();
    EXPECT_EQ(logs.count(LOG_WARNING, "Validation Failed: Config 3 missing for Module 1"), 1u);
    EXPECT_EQ(record(1).ANALOGOUTPUT.Frequency, 1'000'000'000);
    EXPECT_EQ(eeprom_image(), signed_image(settled_settings(), 58)) << "the change has been stored";
}

TEST_F(BenchtopStart, RecallsItsBootSetup)
{
    EEPROM_DEVICE_SETTINGS with_setup = settled_settings();
    with_setup.bootDBConfig = 3;
    store(with_setup, 57);
    for (int channel = 1; channel <= 4; ++channel) {
        files.write_preset(channel, 3,
                           R"({"ANALOGOUTPUT": {"Frequency": )" + std::to_string(channel) + "000000}}");
    }
    start_and_settle();
    for (int channel = 1; channel <= 4; ++channel) {
        EXPECT_EQ(record(channel).ANALOGOUTPUT.Frequency, channel * 1'000'000) << channel;
    }
    EXPECT_EQ(eeprom_image(), signed_image(with_setup, 57));
}

} // namespace
