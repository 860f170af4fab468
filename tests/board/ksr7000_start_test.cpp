// The third platform from its start to its end, with its threads, its module and both stores of its settings.

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <thread>

#include "ksr7000_device_peer.h"
#include "nothrow_new.h"
#include "orvan_sdk/IDeviceConnectionHandler.h"
#include "orvan_sdk/OrvanDebug.h"
#include "start_bench.h"
#include "support/maintenance_client.h"

using namespace board_test;
using namespace HaldeElec::Orvan;
using orvan_test::LogLine;
using sim_board::expect_trace;
using sim_board::SmartBattery;
using Lines = std::vector<std::string>;

namespace {

constexpr uint64_t kSecond = 1'000'000;
constexpr TestResult kPass{BIT_PASS, 0};
constexpr TestResult kFail{BIT_FAIL, 0};

class Ksr7000Start : public StartBench {
protected:
    Ksr7000Start() : StartBench(sim_board::kKsr7000Wiring) {}
    std::unique_ptr<IOrvanDeviceManager> make_device() override
    {
        return std::make_unique<OrvanKsr7000Device>("/dev/null", kLogToCallback);
    }

    /** Settings with the battery option that a start leaves unchanged. */
    static EEPROM_DEVICE_SETTINGS settled_settings()
    {
        EEPROM_DEVICE_SETTINGS record = settings_of_modules();
        record.options = 0x011E; // code 14, MOD, BAT
        std::strcpy(record.modelName, "KSR-7036");
        std::strcpy(record.serialNum, "240017");
        record.hardwareVersion = 'D';
        std::strcpy(record.description, "Marrick Signal Corp.");
        record.numDevices = 1;
        std::strcpy(record.hostName, "bench-1");
        record.maxCwFreq = 20'000'000'000;
        std::strcpy(record.scpiPort, "5025");
        record.device_type = 1;
        record.vendor_id = 0xb001;
        record.product_id = 0x7036;
        std::strcpy(record.fwVersion, "1.19.148");
        return record;
    }
    void start_without_battery()
    {
        board->battery()->set_fitted(false);
        store(settled_settings());
        start_and_settle();
    }
    void start_with_battery()
    {
        store(settled_settings());
        start_and_let_charge_monitor_settle();
    }
    void start_and_let_charge_monitor_settle()
    {
        start();
        // The monitor may find the bus held by the fan, which waits for the multiplexer to settle.
        pass(kSettlingUs);
        threads = 3;
        ASSERT_TRUE(board->clock().wait_for_sleepers(threads));
        pass(kSettlingUs); // the fan may have come second
    }
    /** The module is polled at its own address. */
    void module_tells(const std::string& celsius)
    {
        Scpi_Orvanx::getInstance()->setSelectedChannel(0);
        module(1).always(ModuleAnswer::reply(celsius + ";+OK\r\n"));
    }
    Ksr7000DeviceTestPeer inside() { return {static_cast<OrvanKsr7000Device&>(*device)}; }
    int shown_charge() { return record(1).SYSTEM.Battery; }
    int shown_status() { return record(1).SYSTEM.CurrentStatus; }
};

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
    const std::string told = client.receive();
    ASSERT_EQ(told.size(), 534u);
    for (const char* row : {"IKSR-7036", "S240017", "F1.19.148"}) {
        EXPECT_NE(told.find(row), std::string::npos) << row;
    }
}

TEST_F(Ksr7000Start, BeginsAnInstrumentWithoutSettingsAsTheFactorysModel)
{
    start_and_let_charge_monitor_settle(); // the factory's options have the battery
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
    put_modules_behind_their_channels();

    EEPROM_DEVICE_SETTINGS old = settled_settings();
    std::strcpy(old.fwVersion, "1.19.147");
    store(old, 57);
    start_and_settle();
    EXPECT_EQ(eeprom_image(), signed_image(settled_settings(), 58));
    EXPECT_EQ(file_image(), eeprom_image());
}

TEST_F(Ksr7000Start, WithoutAnSpiPortEndsThere)
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

TEST_F(Ksr7000Start, WithoutMemoryForItsBusEndsThere)
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

// ---- battery

TEST_F(Ksr7000Start, BatteryOptionWithoutABatteryRunsNoChargeMonitor)
{
    start_without_battery();
    EXPECT_FALSE(device->batteryOn);
    uint16_t charge = 0xffff;
    EXPECT_EQ(device->GetBatteryCharge(charge), 0);
    EXPECT_EQ(charge, 0);
    EXPECT_EQ(shown_charge(), -1);
    EXPECT_EQ(shown_status(), 0);
    // One inserted later is not noticed.
    board->battery()->set_fitted(true);
    board->trace().clear();
    pass(60 * kSecond);
    EXPECT_TRUE(board->trace().lines_with({"i2c"}).empty());
    EXPECT_EQ(shown_charge(), -1);
}

TEST_F(Ksr7000Start, BatteryWithoutItsOptionRunsNoChargeMonitor)
{
    EEPROM_DEVICE_SETTINGS without = settled_settings();
    without.options = 0x081E; // the portable's bit means nothing here
    store(without);
    start_and_settle();
    EXPECT_TRUE(inside().battery_is_alive());
    EXPECT_FALSE(device->batteryOn);
    EXPECT_EQ(board->clock().sleepers(), 2u);
    EXPECT_EQ(shown_charge(), -1);
}

TEST_F(Ksr7000Start, ChargeIsFollowedAsItIsAndNothingSwitched)
{
    board->battery()->set_flow(SmartBattery::Flow::kRest);
    start_with_battery();
    EXPECT_TRUE(device->batteryOn);
    EXPECT_EQ(shown_charge(), 100);
    board->trace().clear();
    for (const int percent : {65, 34, 30, 29, 0, 4, 5, 34, 99}) {
        board->battery()->set_charge(percent);
        pass(5 * kSecond);
        EXPECT_EQ(shown_charge(), percent);
        uint16_t charge = 0;
        device->GetBatteryCharge(charge);
        EXPECT_EQ(charge, percent);
    }
    EXPECT_TRUE(board->trace().lines_with({"i2c 0x20", "i2c 0x24"}).empty());
    EXPECT_EQ(logs.count(LOG_INFO, "Battery: 29% status: 0"), 1u);

    board->battery()->set_flow(SmartBattery::Flow::kDrain);
    pass(5 * kSecond);
    EXPECT_EQ(shown_status(), -1);
    board->battery()->set_flow(SmartBattery::Flow::kFill);
    pass(5 * kSecond);
    EXPECT_EQ(shown_status(), 1);
}

TEST_F(Ksr7000Start, RemovedBatteryLeavesItsLastCharge)
{
    board->battery()->set_charge(80);
    board->battery()->set_flow(SmartBattery::Flow::kRest);
    start_with_battery();
    board->battery()->set_fitted(false);
    // A round is five short waits and a long one.
    pass(5 * kSecond + 2 * (5 * kSecond + 500'000));
    EXPECT_EQ(logs.count(LOG_INFO, "ChargeMonitor: Battery access failed"), 2u);
    EXPECT_EQ(shown_charge(), 80);
}

// ---- fan

TEST_F(Ksr7000Start, FanIsDrivenByTheTemperatureOfTheModule)
{
    start_without_battery();
    const struct {
        const char* celsius;
        const char* logged;
        const char* drive;
    } rows[] = {
        {"47.999", "47.999000", "7f"}, {"48.0", "48.000000", "3f"}, {"57.999", "57.999000", "3f"},
        {"58.0", "58.000000", "00"},   {"59.0", "59.000000", "00"}, {"60.0", "60.000000", "00"},
        {"100.0", "100.000000", "00"},
    };
    const auto fan_lines = [this] {
        Lines lines;
        for (const std::string& line : board->trace().take()) {
            if (line.starts_with("spi ")) {
                lines.push_back(line);
            } else if (line.starts_with("debug ")) {
                lines.push_back(line.substr(line.find(']') + 1));
            }
        }
        return lines;
    };
    for (const auto& [celsius, logged, drive] : rows) {
        module_tells(celsius);
        board->trace().clear();
        pass(120 * kSecond + kSettlingUs);
        EXPECT_EQ(fan_lines(),
                  (Lines{std::string("Temperature: ") + logged, "OrvanBenchtopDevice::fanSpeed start",
                         std::string("spi fan: 00 00 ") + drive + " -> ff ff ff"}));
    }
    device->SetFanMode(1);
    for (const char* celsius : {"20.0", "90.0"}) {
        module_tells(celsius);
        board->trace().clear();
        pass(120 * kSecond + kSettlingUs);
        EXPECT_EQ(fan_lines().back(), "spi fan: 00 00 19 -> ff ff ff") << celsius;
    }
}

TEST_F(Ksr7000Start, FanHoldsTheBusDuringItsTransferAndRestoresTheChannel)
{
    start_without_battery();
    device->SetSelectChannel(3);
    pass(120 * kSecond); // into the settling of the multiplexer
    EXPECT_EQ(selected(), 4u);
    EXPECT_FALSE(device->GetSPIhandler()->mtx.try_lock());
    pass(kSettlingUs);
    EXPECT_EQ(selected(), 3u);
    ASSERT_TRUE(device->GetSPIhandler()->mtx.try_lock());
    device->GetSPIhandler()->mtx.unlock();
}

TEST_F(Ksr7000Start, FanTestFailsFromTheEleventhFailedCycle)
{
    const auto drive = sim_board::insert_fault(board->spi(), "fan");
    drive->refuse_after(0);
    start_without_battery();
    for (int cycle = 2; cycle <= 10; ++cycle) {
        pass(120 * kSecond + kSettlingUs);
        EXPECT_EQ(test_result(CBIT, kFanTest), kPass) << cycle;
    }
    pass(120 * kSecond + kSettlingUs);
    EXPECT_EQ(test_result(CBIT, kFanTest), kFail);
    drive->refuse_after(std::nullopt);
    pass(2 * (120 * kSecond + kSettlingUs));
    EXPECT_EQ(test_result(CBIT, kFanTest), kPass);

    BITManager* const manager = inside().bit_manager();
    inside().set_bit_manager(nullptr);
    drive->refuse_after(0);
    pass(3 * (120 * kSecond + kSettlingUs));
    inside().set_bit_manager(manager);
    pass(120 * kSecond + kSettlingUs);
    EXPECT_EQ(test_result(CBIT, kFanTest), kPass) << "without a manager no failure was counted";
}

TEST_F(Ksr7000Start, FanModeIsPutBackToAuto)
{
    start_without_battery();
    device->SetFanMode(1);
    end();
    put_modules_behind_their_channels();
    start_and_settle();
    EXPECT_EQ(device->GetFanMode(), 0);
}

// ---- the keypad; its sender runs until the process ends

TEST_F(Ksr7000Start, KeypadIsReadOnceByHandAndThenAtItsInterrupt)
{
    start_without_battery();
    ASSERT_TRUE(board->keypad()->press(3, 2)); // before the interrupt
    board->trace().clear();
    device->RunKbdServer();
    ASSERT_TRUE(board->clock().wait_for_sleepers(threads + 1));
    const Lines lines = board->trace().lines_with({"pin 15", "lock 0"});
    EXPECT_EQ(lines, (Lines{"pin 15 input", "pin 15 isr falling", "lock 0"}));
    EXPECT_EQ(logs.count(LOG_ERR, "RunKbdServer: unable to setup I2C ISR"), 0u);

    ASSERT_TRUE(board->keypad()->press(1, 1));
    ASSERT_TRUE(board->gpio().wait_for_handlers());
    EXPECT_EQ(board->trace().lines_with({"lock 0"}).size(), 2u);
}

TEST_F(Ksr7000Start, KeypadThatIsNotFittedIsNoFailure)
{
    start_without_battery();
    board->i2c().attach(0x34, nullptr);
    board->trace().clear();
    device->RunKbdServer();
    ASSERT_TRUE(board->clock().wait_for_sleepers(threads + 1));
    EXPECT_EQ(logs.count(LOG_ERR, "RunKbdServer: unable to setup I2C ISR"), 0u);
    EXPECT_TRUE(sim_board::expect_trace(
        board->trace().lines_with({"pin 15", "i2c 0x34", "i2c ?", "lock 0", "unlock 0"}), R"(
        pin 15 input
        i2c 0x34 open -> ENXIO
        lock 0
        unlock 0
    )"));
}

// ---- the end

TEST_F(Ksr7000Start, EndStopsTheChargeMonitorThenTheFanThenClosesTheBus)
{
    start_with_battery();
    module_tells("20.0");
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
    board->trace().clear();
    end_without_frames_before_the_bus_ends();
    const Lines lines = board->trace().lines_with({"spi close", "log 6 [CUdpServer]::WaitForEvent"});
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines.front(), "spi close");
    EXPECT_EQ(lines.back().substr(0, 5), "log 6") << "the frame that ends the server";
}

TEST_F(Ksr7000Start, EndOfAnInstrumentThatNeverStartedTakesNoTime)
{
    board->spi().set_node_present("/dev/spidev0.1", false);
    start();
    const uint64_t before = board->clock().now_us();
    device.reset();
    EXPECT_EQ(board->clock().now_us(), before);
}

} // namespace
