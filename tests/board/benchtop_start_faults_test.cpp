// Faults during the benchtop's start: those that stop it and those that do not.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include <syslog.h>

#include "benchtop_start_bench.h"
#include "nothrow_new.h"
#include "orvan_sdk/OrvanDebug.h"
#include "support/known_leak.h"

using namespace board_test;
using namespace HaldeElec::Orvan;
using orvan_test::LogLine;
using Lines = std::vector<std::string>;

namespace {

// ---- faults that stop it

TEST_F(BenchtopStart, StopsWithoutAnSpiPort)
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

TEST_F(BenchtopStart, StopsWithoutMemoryForItsBus)
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

// ---- faults that do not

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

} // namespace
