// The third platform from start to shutdown, with its module and both stores of its settings.

#include <cstring>
#include <initializer_list>
#include <string>
#include <thread>
#include <vector>

#include <syslog.h>

#include "ksr7000_start_bench.h"
#include "nothrow_new.h"
#include "orvan_sdk/OrvanDebug.h"
#include "support/maintenance_client.h"

using namespace board_test;
using namespace HaldeElec::Orvan;
using orvan_test::LogLine;
using sim_board::expect_trace;
using Lines = std::vector<std::string>;

namespace {

// ---- the start

TEST_F(Ksr7000Start, TakesItsStepsInThisOrder)
{
    start_without_battery();
    EXPECT_TRUE(expect_trace(steps(), R"(
        debug OrvanConnKsr7000::OrvanConnKsr7000 constructor is start @@
        pins setup
        spi open /dev/spidev0.1
        pins setup
        delay 20000
        i2c 0x24 open
        delay 2000000
        delay 1000000
        eeprom read
        log 6 [CPersistentData] readEeprom: read 1024 bytes, ok
        log 6 [CPersistentData] readFSBackup: read 1024 bytes, ok
        log 6 CPersistentData::readData
        log 6 KSR-7036
        module 1: *TST?
        module 1: setup
        log 3 [Orvan Service]: Network configuration: Static eth0 10.0.0.2 255.255.255.0 10.0.0.1 02:00:00:00:00:02
        module 1: :SYST:INF:CAL?
        module 1: :SYST:INF:FPGA?
        module 1: :SYST:INF:SCPI?
        module 1: :ROSC:OUTP:FREQ?
        log 6 [CPersistentData] readData modelname = KSR-7036
        log 6 [CPersistentData] readData hostname = bench-1
        debug Temperature: 0.000000
        debug OrvanBenchtopDevice::fanSpeed start
        spi fan: 00 00 7f -> ff ff ff
    )"));
    EXPECT_NE(out->text().find("OrvanKsr7000Device::read eeprom data done\n"), std::string::npos);
}

TEST_F(Ksr7000Start, EndsInitializedAndOnChannelOne)
{
    start_without_battery();
    EXPECT_TRUE(device->Initialized());
    EXPECT_FALSE(device->Connected());
    EXPECT_EQ(device->device_type_product, Ksr7000Device);
    EXPECT_EQ(device->GetFanMode(), 0);
    EXPECT_STREQ(device->getDeviceArch()->model, "KSR-7036");
    EXPECT_EQ(inside().bit_manager(), BITManager::getInstance(0));
    EXPECT_EQ(selected(), 1u);
    EXPECT_EQ(board->clock().sleepers(), threads);
    EXPECT_EQ(logs.count(LOG_ERR, "HW initialization failure"), 0u);
    EXPECT_STREQ(record(1).SYSTEM.Model, "KSR-7036");
    EXPECT_EQ(test_result(PBIT, kEepromTest), kPass);
    EXPECT_EQ(test_result(CBIT, kFanTest), kPass);
    EXPECT_EQ(module(2).connections(), 0u);
}

TEST_F(Ksr7000Start, ReportsItsIdentityToTheMaintenanceTool)
{
    start_without_battery();
    const orvan_test::MaintenanceClient client;
    client.send(orvan_test::FrameHeader{"HEID"}.bytes(), 7502);
    const std::string reply = client.receive();
    ASSERT_EQ(reply.size(), 534u);
    for (const char* row : {"IKSR-7036", "S240017", "F1.19.148"}) {
        EXPECT_NE(reply.find(row), std::string::npos) << row;
    }
}

TEST_F(Ksr7000Start, TreatsAnInstrumentWithoutSettingsAsTheFactoryModel)
{
    start_and_let_charge_monitor_settle(); // the factory options include the battery
    EXPECT_TRUE(device->Initialized());
    uint8_t identity[128];
    EXPECT_EQ(device->GetIdentification(identity), 0);
    EXPECT_STREQ(reinterpret_cast<const char*>(identity), "Halde Electronics,KSR-7036,230000,1.19.148");
    EXPECT_EQ(settings().numDevices, 1);
    EXPECT_EQ(settings().vendor_id, 0xb001);
    EXPECT_EQ(settings().product_id, 0x7036);
    EXPECT_EQ(settings().hardwareVersion, 'D');
    EXPECT_STREQ(settings().description, "Marrick Signal Corp.");
    EXPECT_EQ(settings().options, 0x011E);
    EXPECT_EQ(file_image(), eeprom_image());
    EXPECT_TRUE(device->batteryOn);
}

TEST_F(Ksr7000Start, StoresItsSettingsOnlyWhenItHasChangedThem)
{
    board->battery()->set_fitted(false);
    store(settled_settings(), 57);
    const size_t cycles = board->eeprom().write_cycles();
    start_and_settle();
    EXPECT_EQ(board->eeprom().write_cycles(), cycles);
    end();
    connect_modules();

    EEPROM_DEVICE_SETTINGS old = settled_settings();
    std::strcpy(old.fwVersion, "1.19.147");
    store(old, 57);
    start_and_settle();
    EXPECT_EQ(eeprom_image(), signed_image(settled_settings(), 58));
    EXPECT_EQ(file_image(), eeprom_image());
}

TEST_F(Ksr7000Start, StopsWithoutAnSpiPort)
{
    board->spi().set_node_present("/dev/spidev0.1", false);
    start();
    EXPECT_EQ(logs.lines(),
              (std::vector<LogLine>{
                  {LOG_ERR, "[OrvanKsr7000Device] ConfigChannelSPI failed - SPI not initialized"}}));
    EXPECT_FALSE(device->Initialized());
    EXPECT_EQ(device->device_type_product, Ksr7000Device);
    EXPECT_EQ(inside().bit_manager(), nullptr);
    EXPECT_EQ(CPersistentData::GetInstance(), nullptr);
    EXPECT_EQ(board->clock().sleepers(), 0u);
    EXPECT_TRUE(board->trace().lines_with({"i2c", "delay", "module"}).empty());
}

TEST_F(Ksr7000Start, StopsWithoutMemoryForItsBus)
{
    refuse_nothrow_new(true);
    start();
    refuse_nothrow_new(false);
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_ERR, "Device connector allocation failure!!!"}}));
    EXPECT_EQ(out->text(), "Device connector allocation failure!!!\n");
    EXPECT_FALSE(device->Initialized());
    EXPECT_EQ(device->GetSPIhandler(), nullptr);
}

TEST_F(Ksr7000Start, TakesItsLogModeAndNeedsNoLogFile)
{
    board->spi().set_node_present("/dev/spidev0.1", false);
    const OrvanKsr7000Device without_file(nullptr, 4);
    EXPECT_EQ(HaldeElec::OrvanDebug::GetLogMode(), 4);
}

TEST_F(Ksr7000Start, ContinuesWithAnExpanderThatFailsAndLeavesTheBatteryAlone)
{
    i2c_fault(0x20)->refuse_after(10);
    store(settled_settings());
    start_and_settle();
    EXPECT_TRUE(device->Initialized());
    EXPECT_EQ(logs.count(LOG_ERR, "InitHW: GPIO expander 0x21 initialization failed"), 1u);
    EXPECT_EQ(logs.count(LOG_ERR, "HW initialization failure"), 1u);
    EXPECT_NE(out->text().find("HW initialization failure\n"), std::string::npos);
    EXPECT_FALSE(inside().battery_is_alive());
    EXPECT_FALSE(device->batteryOn);
    EXPECT_TRUE(board->trace().lines_with({"i2c 0x24", "i2c 0x09", "i2c 0x0b"}).empty());
    EXPECT_EQ(board->clock().sleepers(), 2u);
}

TEST_F(Ksr7000Start, ContinuesWithoutItsI2cChips)
{
    for (const uint8_t chip : std::initializer_list<uint8_t>{0x20, 0x24, 0x09, 0x0b}) {
        i2c_fault(chip)->absent(true);
    }
    store(settled_settings());
    start_and_settle();
    EXPECT_TRUE(device->Initialized());
    EXPECT_EQ(logs.count(LOG_ERR, "HW initialization failure"), 0u);
    EXPECT_EQ(device->SetRFOutput(IOrvanDeviceManager::On), -1);
}

// ---- RF output

TEST_F(Ksr7000Start, RfOutputOfItsOneChannelIsSwitched)
{
    start_without_battery();
    board->trace().clear();
    EXPECT_EQ(device->SetRFOutput(IOrvanDeviceManager::On), 0);
    EXPECT_EQ(board->expander(0x20).pins(sim_board::Mcp23017::kA), 0x24);
    EXPECT_EQ(device->SetRFOutput(IOrvanDeviceManager::Off), 0);
    EXPECT_EQ(board->expander(0x20).pins(sim_board::Mcp23017::kA), 0x04);
    board->trace().clear();
    device->SetSelectChannel(2);
    EXPECT_EQ(device->SetRFOutput(IOrvanDeviceManager::On), -1);
    EXPECT_TRUE(board->trace().lines_with({"i2c", "pin"}).empty());
}

// ---- the end

TEST_F(Ksr7000Start, DestructionStopsTheChargeMonitorThenTheFanThenClosesTheBus)
{
    start_with_battery();
    module_reports("20.0");
    // One failed reading delays the monitor's cycles by 0.1 s against the fan's.
    board->battery()->set_fitted(false);
    pass(5 * kSecond);
    board->battery()->set_fitted(true);
    pass(114 * kSecond);
    board->trace().clear();

    const Ksr7000DeviceTestPeer peer = inside();
    std::thread destructor([this] { orvan_test::end_with_frames([this] { device.reset(); }); });
    while (peer.charge_monitor_runs()) {
        std::this_thread::yield();
    }
    // The fan keeps running while the monitor sleeps.
    pass(kSecond + 50'000);
    EXPECT_EQ(count("spi fan: 00 00 7f -> ff ff ff"), 1u);
    EXPECT_TRUE(peer.fan_runs());
    board->clock().advance(60'000);
    while (peer.fan_runs()) {
        std::this_thread::yield();
    }
    EXPECT_TRUE(board->trace().lines_with({"spi close"}).empty());
    board->clock().advance(120 * kSecond);
    destructor.join();
    EXPECT_EQ(board->trace().lines_with({"spi "}), (Lines{"spi fan: 00 00 7f -> ff ff ff", "spi close"}));
    EXPECT_TRUE(board->trace().lines_with({"i2c"}).empty()) << "no further reading";
}

TEST_F(Ksr7000Start, EndsItsBusBeforeItsMaintenanceServer)
{
    start_without_battery();
    wait_for_maintenance_server();
    board->trace().clear();
    end_without_frames_before_the_bus_ends();
    const Lines lines = board->trace().lines_with({"spi close", "log 6 [CUdpServer]::WaitForEvent"});
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines.front(), "spi close");
    EXPECT_EQ(lines.back().substr(0, 5), "log 6") << "the frame that ends the server";
}

TEST_F(Ksr7000Start, DestructionOfAnUnstartedInstrumentTakesNoTime)
{
    board->spi().set_node_present("/dev/spidev0.1", false);
    start();
    const uint64_t before = board->clock().now_us();
    device.reset();
    EXPECT_EQ(board->clock().now_us(), before);
}

} // namespace
