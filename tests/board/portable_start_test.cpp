// The portable from start to shutdown.

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <syslog.h>

#include "nothrow_new.h"
#include "orvan_sdk/OrvanDebug.h"
#include "portable_start_bench.h"
#include "support/loopback.h"
#include "support/maintenance_client.h"

using namespace board_test;

namespace {

namespace fs = std::filesystem;
using HaldeElec::OrvanDebug;
using Lines = std::vector<std::string>;

TEST_F(PortableStart, SetsUpBusThenHardwareThenReadsTheSettings)
{
    without_battery();
    start();
    const Lines lines = board->trace().lines();
    const auto first = std::find_if(lines.begin(), lines.end(),
                                    [](const std::string& line) { return line.starts_with("spi eeprom"); });
    EXPECT_TRUE(expect_trace({lines.begin(), first}, R"(
        pins setup
        spi open /dev/spidev0.1
        spi mode = 0
        spi mode -> 0
        spi bits = 8
        spi bits -> 8
        spi speed = 3000000
        spi speed -> 3000000
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
        i2c 0x09 open
        i2c 0x09 [0x12] -> 0x0000
        i2c 0x09 [0x12] = 0x8000
        i2c 0x09 [0x3f] = 0x7f00
        i2c 0x09 [0x14] = 0x0800
        i2c 0x09 [0x31] = 0x0237
        i2c 0x09 [0x12] = 0x860e
        i2c 0x20 open
        i2c 0x20 [0x0a] = 0x00
        i2c 0x20 [0x0b] = 0x00
        i2c 0x20 [0x14] = 0x80
        i2c 0x20 [0x15] = 0x05
        i2c 0x20 [0x00] = 0x03
        i2c 0x20 [0x01] = 0xf8
        delay 2000000
        pin 27 = 0
        i2c 0x0b open -> ENXIO
        delay 1000000
        pin 11 = 1
        pin 27 = 1
        pin 16 = 0
    )"));
    EXPECT_EQ(board->gpio().level(27), 1) << "the first access to the EEPROM has raised it permanently";
    EXPECT_NE(out->text().find("OrvanPortableDevice::read eeprom data done\n"), std::string::npos);
}

TEST_F(PortableStart, QueriesItsModuleAndThenItsIdentity)
{
    without_battery();
    start();
    const Lines requests = module->requests();
    ASSERT_GE(requests.size(), 5u);
    EXPECT_EQ(requests.front(), "*TST?\r\n");
    EXPECT_EQ(
        Lines(requests.end() - 4, requests.end()),
        (Lines{":SYST:INF:CAL?\r\n", ":SYST:INF:FPGA?\r\n", ":SYST:INF:SCPI?\r\n", ":ROSC:OUTP:FREQ?\r\n"}));
    EXPECT_TRUE(Scpi_Orvanx::getInstance()->m_isLive[0]);
    EXPECT_EQ(Scpi_Orvanx::getInstance()->getSelectedChannel(), 1);
    EXPECT_EQ(Scpi_Orvanx::getInstance()->getNumberofChannels(), 1);
}

TEST_F(PortableStart, OfANewInstrumentEndsInitialized)
{
    without_battery();
    start();
    EXPECT_TRUE(device->Initialized());
    EXPECT_FALSE(device->Connected());
    EXPECT_EQ(device->device_type_product, PortableDevice);
    EXPECT_STREQ(device->getDeviceArch()->model, "OVX3651P");
    EXPECT_EQ(device->GetFanMode(), 0);
    uint32_t channel = 0;
    device->GetSelectChannel(channel);
    EXPECT_EQ(channel, 1u);
    uint8_t identity[128];
    EXPECT_EQ(device->GetIdentification(identity), 0);
    EXPECT_STREQ(reinterpret_cast<const char*>(identity), "Halde Electronics,OVX3651P,230000,1.19.140");
    EXPECT_EQ(settings().numDevices, 1);
    EXPECT_EQ(settings().hardwareVersion, 'D');
    EXPECT_STREQ(settings().description, "Halde Electronics Ltd.");
    EXPECT_EQ(settings().product_id, 0x3651);
    EXPECT_EQ(settings().vendor_id, 0x168c);
    EXPECT_EQ(settings().maxCwFreq, 20'000'000'000);
    EXPECT_STREQ(record().SYSTEM.Model, "OVX3651P");
}

TEST_F(PortableStart, StartsAsAPortableOnAnyMachine)
{
    std::ofstream(files->halde() / "debug.txt") << "of the last run\n";
    board->spi().set_node_present(kSettingsNode, false);
    device.reset(CreateDevice("/home/orvan/halde/debug.txt", 2));
    EXPECT_EQ(logs.lines().front(), (LogLine{LOG_INFO, "creating Portable device"}));
    EXPECT_EQ(device->device_type_product, PortableDevice);
    EXPECT_EQ(device->detectDevicePin(), 0);
    EXPECT_EQ(OrvanDebug::GetLogMode(), 2);
    EXPECT_EQ(fs::file_size(files->halde() / "debug.txt"), 0u);
}

TEST_F(PortableStart, WithoutALogFileStillStarts)
{
    board->spi().set_node_present(kSettingsNode, false);
    device.reset(CreateDevice(nullptr, 1));
    EXPECT_EQ(device->device_type_product, PortableDevice);
}

TEST_F(PortableStart, StopsWithoutAnSpiPort)
{
    board->spi().set_node_present(kSettingsNode, false);
    start();
    EXPECT_EQ(logs.lines(),
              (std::vector<LogLine>{
                  {LOG_INFO, "creating Portable device"},
                  {LOG_ERR, "[OrvanPortableDevice] ConfigChannelSPI failed - SPI not initialized"}}));
    EXPECT_FALSE(device->Initialized());
    EXPECT_EQ(device->device_type_product, PortableDevice);
    EXPECT_EQ((PortableDeviceTestPeer{static_cast<OrvanPortableDevice&>(*device)}.bit_manager()), nullptr);
    EXPECT_EQ(board->clock().sleepers(), 0u);
    EXPECT_EQ(CPersistentData::GetInstance(), nullptr);
    EXPECT_TRUE(board->trace().lines_with({"i2c", "delay"}).empty());
}

TEST_F(PortableStart, StopsWithoutMemoryForItsBus)
{
    refuse_nothrow_new(true);
    device.reset(CreateDevice("/dev/null", kDebugOff));
    refuse_nothrow_new(false);
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_INFO, "creating Portable device"},
                                                  {LOG_ERR, "Device connector allocation failure!!!"}}));
    EXPECT_EQ(out->text(), "Device connector allocation failure!!!\n");
    EXPECT_FALSE(device->Initialized());
    EXPECT_EQ(device->GetSPIhandler(), nullptr);
    EXPECT_TRUE(board->trace().lines().empty());
}

TEST_F(PortableStart, ContinuesWhenTheHardwareFails)
{
    insert_fault(board->i2c(), kCharger)->not_acknowledging(true);
    start();
    EXPECT_EQ(logs.count(LOG_ERR, "InitHW: battery controller setup failed"), 1u);
    EXPECT_EQ(logs.count(LOG_ERR, "HW initialization failure"), 1u);
    EXPECT_NE(out->text().find("HW initialization failure\n"), std::string::npos);
    EXPECT_TRUE(device->Initialized());
    EXPECT_FALSE(device->batteryOn) << "the battery was not looked for";
    EXPECT_TRUE(threads(2));
    EXPECT_EQ(board->expander(kExpander).reg(Mcp23017::kIodir, Mcp23017::kA), 0xff)
        << "port A keeps its reset state";
}

TEST_F(PortableStart, ContinuesWithoutAnEepromAndFromItsBackup)
{
    without_battery();
    start();
    std::strcpy(settings().serialNum, "230042");
    store_settings();
    board->spi().attach("eeprom", nullptr);
    restart();
    EXPECT_TRUE(device->Initialized());
    EXPECT_STREQ(settings().serialNum, "230042");
}

TEST_F(PortableStart, WritesSettingsOnlyWhenItHasChangedThem)
{
    without_battery();
    start();
    const size_t cycles = board->eeprom().write_cycles();
    EXPECT_GT(cycles, 0u);
    restart();
    EXPECT_EQ(board->eeprom().write_cycles(), cycles);

    std::strcpy(settings().fwVersion, "1.19.139");
    store_settings();
    const size_t with_old_version = board->eeprom().write_cycles();
    restart();
    EXPECT_EQ(board->eeprom().write_cycles(), with_old_version + 16) << "one write of the blob";
    EXPECT_STREQ(settings().fwVersion, "1.19.140");
    std::ifstream backup(files->halde() / "config/flash.ini", std::ios::binary);
    const std::vector<uint8_t> image{std::istreambuf_iterator<char>(backup), {}};
    const std::vector<uint8_t> cells = board->eeprom().contents();
    ASSERT_EQ(image.size(), TOTAL_BLOB_SIZE);
    EXPECT_TRUE(std::equal(image.begin(), image.end(), cells.begin()));
}

TEST_F(PortableStart, ReportsItsIdentityToTheMaintenanceTool)
{
    without_battery();
    start();
    const orvan_test::MaintenanceClient client;
    client.send(orvan_test::FrameHeader{"HEID"}.bytes(), 7502);
    const std::string reply = client.receive();
    ASSERT_EQ(reply.size(), 534u);
    EXPECT_NE(reply.find("IOVX3651P"), std::string::npos);
    EXPECT_NE(reply.find("F1.19.140"), std::string::npos);
}

TEST_F(PortableStart, ResetsTheFanModeToAuto)
{
    without_battery();
    start();
    device->SetFanMode(1);
    EXPECT_EQ(device->GetFanMode(), 1);
    restart();
    EXPECT_EQ(device->GetFanMode(), 0);
}

TEST_F(PortableStart, DestructionStopsTheFanThreadAndClosesTheBus)
{
    without_battery();
    const size_t descriptors = orvan_test::open_descriptors();
    start();
    EXPECT_TRUE(threads(2));
    board->trace().clear();
    end();
    EXPECT_EQ(board->clock().sleepers(), 0u);
    EXPECT_EQ(board->trace().lines_with({"spi", "i2c", "pin"}).back(), "spi close");
    // The module's side of a connection may still be open in this process.
    ASSERT_TRUE(module->wait_finished(module->connections()));
    const size_t frames =
        logs.count(LOG_INFO, "[CUdpServer]::WaitForEvent sending HEID============================");
    EXPECT_EQ(orvan_test::open_descriptors(), descriptors + 1 + frames)
        << "the maintenance server leaves its socket, and one to the module for each frame";
}

} // namespace
