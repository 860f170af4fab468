// The portable from its start to its end, with its threads, one module and both stores of its settings.

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <thread>

#include <unistd.h>

#include "dataorvan.h"
#include "nothrow_new.h"
#include "orvan_sdk/OrvanDebug.h"
#include "orvan_sdk/bit/bit_manager.h"
#include "orvan_sdk/lxi/PersistentData.h"
#include "orvan_sdk/orvan_sdk.h"
#include "portable_bench.h"
#include "support/instrument_files.h"
#include "support/loopback.h"
#include "support/maintenance_client.h"
#include "support/output_capture.h"
#include "support/persistent_data_peer.h"
#include "support/private_home.h"
#include "support/private_network.h"
#include "support/scripted_module.h"
#include "support/stand_ins.h"

using namespace board_test;

namespace {

namespace fs = std::filesystem;
using HaldeElec::OrvanDebug;
using orvan_test::OutputCapture;
using Lines = std::vector<std::string>;

constexpr uint64_t kSecond = 1'000'000;

class PortableStart : public testing::Test, protected PortableBoard {
protected:
    PortableStart()
    {
        if (!refusal().empty()) {
            return;
        }
        // A link to a folder would not count as a folder for a program that creates it.
        fs::create_directories("/home/orvan");
        fs::create_directory_symlink(files->halde(), "/home/orvan/halde");
        files->write_factory_setup("{}");
        BITManager::getInstance(0); // with no periodic thread
        module->always(orvan_test::ModuleAnswer::reply("25.0;+OK\r\n"));
        put_module_behind_the_service();
        logs.clear();
    }
    void SetUp() override
    {
        if (!refusal().empty()) {
            GTEST_SKIP() << refusal();
        }
    }
    /** GoogleTest reports failures on standard output. */
    void TearDown() override
    {
        if (refusal().empty()) {
            end();
        }
        const std::string told = HasFailure() ? out->text() : ""; // the library's own may hold NULs
        out.reset();
        std::fwrite(told.data(), 1, told.size(), stdout);
    }

    void without_battery() { board->battery()->set_fitted(false); }

    void start()
    {
        const sim_board::SelfAdvancing self{board->clock()};
        device.reset(CreateDevice("/dev/null", kDebugOff));
        // The selected channel's temperature is polled through the instrument's own server.
        Scpi_Orvanx::getInstance()->setScpiPort(module->port());
    }
    /** A new start of the process, on the same machine. */
    void restart()
    {
        end();
        put_module_behind_the_service();
        start();
    }
    void end()
    {
        while_time_runs([this] {
            orvan_test::end_with_frames([this] { device.reset(); });
            end_module_service();
        });
        PersistentDataTestPeer::forget_instance();
    }

    /** The threads that a device has started, asleep. */
    bool threads(size_t count)
    {
        return board->clock().wait_for_sleepers(count) && board->clock().sleepers() == count;
    }
    static EEPROM_DEVICE_SETTINGS& settings() { return *CPersistentData::GetInstance()->getSettings(); }
    void store_settings()
    {
        const sim_board::SelfAdvancing self{board->clock()};
        CPersistentData::GetInstance()->writeData(true, true);
    }
    const ORVAN_CONFIG& record()
    {
        return *reinterpret_cast<ORVAN_CONFIG*>(Scpi_Orvanx::getInstance()->get_channelDB(1));
    }

    /** Runs the body of a case whose device never ends, in a child process that ends with it. */
    template <typename Body>
    void in_a_process_that_ends(Body body)
    {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        EXPECT_EXIT(end_process_behind(body), testing::ExitedWithCode(0), "");
    }

    /** Why a case can't run here; empty when it can. */
    const std::string& refusal() const { return home.refusal().empty() ? network.refusal() : home.refusal(); }

    orvan_test::PrivateHome home;
    orvan_test::PrivateNetwork network;
    std::optional<OutputCapture> out{STDOUT_FILENO};
    std::optional<OutputCapture> err{STDERR_FILENO};
    std::optional<orvan_test::StandIns> stand_ins{std::in_place};
    std::optional<orvan_test::InstrumentFiles> files{std::in_place};
    std::optional<orvan_test::ScriptedModule> module{std::in_place};
    LogCapture logs;
    std::unique_ptr<IOrvanDeviceManager> device;

private:
    void put_module_behind_the_service()
    {
        Scpi_Orvanx* const modules = Scpi_Orvanx::getInstance();
        modules->m_orvanXIp[0] = module->address();
        modules->m_OrvanXport[0] = static_cast<uint32_t>(module->port());
    }

    template <typename Body>
    [[noreturn]] void end_process_behind(Body body)
    {
        body();
        err.reset();
        // GoogleTest prints nothing in such a process.
        const auto& result = *testing::UnitTest::GetInstance()->current_test_info()->result();
        for (int i = 0; i < result.total_part_count(); ++i) {
            const auto& part = result.GetTestPartResult(i);
            std::fprintf(stderr, "%s:%d: %s\n", part.file_name(), part.line_number(), part.message());
        }
        module.reset();
        stand_ins.reset();
        files.reset();
        std::_Exit(HasFailure() ? 1 : 0);
    }

    template <typename Body>
    void while_time_runs(Body body)
    {
        std::atomic<bool> done = false;
        std::thread worker([&] {
            body();
            done = true;
        });
        while (!done) {
            board->clock().advance(kSecond);
        }
        worker.join();
    }
};

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

TEST_F(PortableStart, BeginsAsAPortableOnAnyMachine)
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

TEST_F(PortableStart, WithoutAnSpiPortEndsThere)
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

TEST_F(PortableStart, WithoutMemoryForItsBusEndsThere)
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

TEST_F(PortableStart, TheBatteryOptionWithoutABatteryRunsNoChargeMonitor)
{
    without_battery();
    start();
    EXPECT_EQ(settings().options & 0x800, 0x800);
    EXPECT_FALSE(device->batteryOn);
    EXPECT_TRUE(threads(2)) << "fans and temperature";
    uint16_t charge = 0xffff;
    EXPECT_EQ(device->GetBatteryCharge(charge), 0);
    EXPECT_EQ(charge, 0);
    EXPECT_EQ(record().SYSTEM.Battery, -1);
    EXPECT_EQ(record().SYSTEM.CurrentStatus, 0);
    board->trace().clear();
    EXPECT_TRUE(board->clock().run(60 * kSecond, 2));
    EXPECT_TRUE(board->trace().lines_with({"i2c 0x0b", "i2c 0x09"}).empty());
    EXPECT_EQ(record().SYSTEM.Battery, -1);
}

TEST_F(PortableStart, ABatteryWithoutItsOptionRunsNoChargeMonitor)
{
    without_battery();
    start();
    settings().options &= static_cast<uint16_t>(~0x800);
    store_settings();
    board->battery()->set_fitted(true);
    restart();
    EXPECT_TRUE((PortableDeviceTestPeer{static_cast<OrvanPortableDevice&>(*device)}.battery_is_alive()));
    EXPECT_FALSE(device->batteryOn);
    EXPECT_TRUE(threads(2));
    uint16_t charge = 0xffff;
    EXPECT_EQ(device->GetBatteryCharge(charge), 0);
    EXPECT_EQ(charge, 0);
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
    const std::string told = client.receive();
    ASSERT_EQ(told.size(), 534u);
    EXPECT_NE(told.find("IOVX3651P"), std::string::npos);
    EXPECT_NE(told.find("F1.19.140"), std::string::npos);
}

TEST_F(PortableStart, PutsTheFanModeBackToAuto)
{
    without_battery();
    start();
    device->SetFanMode(1);
    EXPECT_EQ(device->GetFanMode(), 1);
    restart();
    EXPECT_EQ(device->GetFanMode(), 0);
}

TEST_F(PortableStart, TheEndStopsTheFanThreadAndClosesTheBus)
{
    without_battery();
    const size_t descriptors = orvan_test::open_descriptors();
    start();
    EXPECT_TRUE(threads(2));
    board->trace().clear();
    end();
    EXPECT_EQ(board->clock().sleepers(), 0u);
    EXPECT_EQ(board->trace().lines_with({"spi", "i2c", "pin"}).back(), "spi close");
    // The module's own end of a connection may still be open in this process.
    ASSERT_TRUE(module->wait_finished(module->connections()));
    const size_t frames =
        logs.count(LOG_INFO, "[CUdpServer]::WaitForEvent sending HEID============================");
    EXPECT_EQ(orvan_test::open_descriptors(), descriptors + 1 + frames)
        << "the maintenance server leaves its socket, and one to the module for each frame";
}

/** How the charge monitor's readings change. */
struct ChargeHistory {
    void read(unsigned percentage)
    {
        shown = percentage <= 30 ? 0 : static_cast<int>(percentage - 30) * 100 / 70;
        power = shown == 0 ? false : shown >= 5 ? true : power;
        last = percentage;
    }

    int shown = -1;
    bool power = true;
    unsigned last = 0;
};

TEST_F(PortableStart, ABatteryIsFollowedFromFullToEmptyAndBack)
{
    in_a_process_that_ends([this] {
        using sim_board::SmartBattery;
        board->battery()->set_flow(SmartBattery::Flow::kDrain);
        start();
        EXPECT_TRUE(device->Initialized());
        EXPECT_TRUE(device->batteryOn);
        ASSERT_TRUE(threads(3)) << "fans, temperature and charge";

        const auto run = [this](SmartBattery::Flow flow, int status) {
            ChargeHistory history;
            history.power = board->module_power();
            Lines switches;
            board->battery()->set_flow(flow);
            // A reading at every percent: the hours in which it would flow cost some 100,000 thread switches.
            for (int done = 0; done <= 100; ++done) {
                board->battery()->set_charge(flow == SmartBattery::Flow::kDrain ? 100 - done : done);
                board->trace().clear();
                if (!board->clock().run(5 * kSecond, 3)) {
                    ADD_FAILURE() << "a thread hangs";
                    return switches;
                }
                for (const std::string& line :
                     board->trace().lines_with({"i2c 0x0b [0x0d]", "i2c 0x20 [0x14] ="})) {
                    unsigned percentage = 0;
                    if (std::sscanf(line.c_str(), "i2c 0x0b [0x0d] -> %x", &percentage) == 1) {
                        history.read(percentage);
                    } else {
                        switches.push_back(std::to_string(history.last) + "%: " + line.substr(9));
                    }
                }
                EXPECT_EQ(record().SYSTEM.Battery, history.shown);
                EXPECT_EQ(board->module_power(), history.power);
                const bool flows = history.last > 0 && history.last < 100;
                EXPECT_TRUE(record().SYSTEM.CurrentStatus == status ||
                            (!flows && record().SYSTEM.CurrentStatus == 0));
            }
            EXPECT_EQ(history.last, flow == SmartBattery::Flow::kDrain ? 0u : 100u);
            EXPECT_EQ(record().SYSTEM.CurrentStatus, 0);
            return switches;
        };
        EXPECT_EQ(run(SmartBattery::Flow::kDrain, -1), Lines{"30%: [0x14] = 0x18"});
        EXPECT_EQ(run(SmartBattery::Flow::kFill, 1), Lines{"34%: [0x14] = 0x98"});
        uint16_t charge = 0;
        EXPECT_EQ(device->GetBatteryCharge(charge), 0);
        EXPECT_EQ(charge, 100);
    });
}

TEST_F(PortableStart, ARemovedBatteryLeavesItsLastCharge)
{
    in_a_process_that_ends([this] {
        board->battery()->set_charge(80);
        board->battery()->set_flow(sim_board::SmartBattery::Flow::kRest);
        start();
        ASSERT_TRUE(threads(3));
        EXPECT_EQ(record().SYSTEM.Battery, 71);
        board->battery()->set_fitted(false);
        logs.clear();
        board->trace().clear();
        // A round is five short waits and a long one.
        ASSERT_TRUE(board->clock().run(5 * kSecond + 2 * (5 * kSecond + 500'000), 3));
        EXPECT_EQ(logs.count(LOG_INFO, "ChargeMonitor: Battery access failed"), 2u);
        EXPECT_EQ(board->trace().lines_with({"i2c 0x0b open -> ENXIO"}).size(), 13u);
        EXPECT_EQ(record().SYSTEM.Battery, 71);
        EXPECT_TRUE(board->module_power());
    });
}

TEST_F(PortableStart, EveryChargeMonitorOfTheProcessKnowsWhetherTheModuleIsOff)
{
    in_a_process_that_ends([this] {
        board->battery()->set_charge(20);
        board->battery()->set_flow(sim_board::SmartBattery::Flow::kRest);
        start();
        ASSERT_TRUE(threads(3));
        EXPECT_FALSE(board->module_power());
        ASSERT_TRUE(board->clock().run(kSecond, 3)); // so that the two are never awake at once
        board->trace().clear();
        std::thread([this] {
            PortableDeviceTestPeer{static_cast<OrvanPortableDevice&>(*device)}.charge_monitor();
        }).detach();
        ASSERT_TRUE(threads(4));
        ASSERT_TRUE(board->clock().run(10 * kSecond, 4));
        EXPECT_EQ(board->trace().lines_with({"i2c 0x0b [0x0d]"}).size(), 5u);
        EXPECT_TRUE(board->trace().lines_with({"i2c 0x20 [0x14]"}).empty()) << "it is off already";

        board->battery()->set_charge(80);
        ASSERT_TRUE(board->clock().run(10 * kSecond, 4));
        EXPECT_EQ(board->trace().lines_with({"i2c 0x20 [0x14] ="}).size(), 1u) << "one has switched it on";
        EXPECT_TRUE(board->module_power());
    });
}

TEST_F(PortableStart, TheEndDoesNotReturnWhileAChargeMonitorRuns)
{
    in_a_process_that_ends([this] {
        start();
        ASSERT_TRUE(threads(3));
        std::atomic<bool> ended = false;
        std::thread([&] {
            delete device.release();
            ended = true;
        }).detach();
        board->trace().clear();
        for (int seconds = 0; seconds < 60; ++seconds) {
            ASSERT_TRUE(board->clock().run(kSecond, 3)) << "all three threads keep running";
        }
        EXPECT_FALSE(ended);
        EXPECT_EQ(board->trace().lines_with({"i2c 0x0b open"}).size(), 12u);
    });
}

} // namespace
