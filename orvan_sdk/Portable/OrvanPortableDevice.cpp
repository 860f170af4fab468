#include "orvan_sdk/Portable/OrvanPortableDevice.h"

#include <wiringPi.h>

#include "board/battery.h"
#include "board/charge_controller.h"
#include "board/expanders.h"
#include "board/mcp23017.h"
#include "board/module_supply.h"
#include "board/register_steps.h"
#include "board/trigger_impedance.h"
#include "device/device_platform.h"
#include "device/device_threads.h"
#include "device/init_hw.h"
#include "device/start_hooks.h"
#include "orvan_sdk/IDeviceConnectionHandler.h"
#include "orvan_sdk/Portable/OrvanConnPortable.h"
#include "orvan_sdk/bit/bit_tests.h"
#include "orvan_sdk/i2cdev.h"
#include "orvan_sdk/lxi/PersistentData.h"
#include "orvan_sdk/lxi/option_tables.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include "portable_board.h"

namespace HaldeElec::Orvan {
namespace {

constexpr sDevDefaults_t g_devDefaults{"OVX3651P", "Halde Electronics Ltd.", "230000", "D"};

constexpr RegisterStep kExpanderSetUp[] = {
    write_value(IOCONA, 0x00), write_value(IOCONB, 0x00), write_value(OLATA, kModulePower),
    write_value(OLATB, 0x05),  write_value(IODIRA, 0x03), write_value(IODIRB, 0xF8),
};
constexpr WordStep kChargerSetUp[] = {
    read_or_word(0x12, 0x8000), write_word(kChargerRefresh, kChargerRefreshValue),
    write_word(0x14, 0x0800),   write_word(0x31, 0x0237),
    write_word(0x12, 0x860E),
};

void set_up_pins()
{
    wiringPiSetup();
    pinMode(USB_INT_PIN, INPUT);
    pinMode(I2C_RST_PIN, OUTPUT);
    pinMode(SPIEN_PIN, OUTPUT);
    digitalWrite(SPIEN_PIN, HIGH);
    pinMode(EEPROM_CS, OUTPUT);
    pinMode(SPI_CS, OUTPUT);
    digitalWrite(EEPROM_CS, HIGH);
    digitalWrite(SPI_CS, HIGH);
    digitalWrite(I2C_RST_PIN, HIGH);
    pinMode(BTN_INT_CPU_PIN, INPUT);
    pinMode(BTN_KILL_CPU_PIN, OUTPUT);
    digitalWrite(BTN_KILL_CPU_PIN, HIGH);
}

} // namespace

constinit const DevicePlatform kPortablePlatform{
    .class_name = "OrvanPortableDevice",
    .type = PortableDevice,
    .models = g_portableModelsTable,
    .defaults = g_devDefaults,
    .options = optPortable_Tbl,
    .sw_version = "1.19.140",
    .select_pins = kEepromSelectPins,
    .make_handler = make_handler<OrvanConnPortable>,
};

OrvanPortableDevice::OrvanPortableDevice(const char* log_path, int log_mode)
{
    start(kPortablePlatform, log_path, log_mode,
          {.fan = {[this] { fan_control(devConnHandler); }, m_runFanThread, m_fanThread},
           .charge_monitor = DeviceThread{[this] { ChargeMonitor(); }, m_runChargerThread, m_chargerThread},
           .battery_option = [](uint16_t options) { return uOptions_portable_t{options}.bat != 0; }});
}

OrvanPortableDevice::~OrvanPortableDevice()
{
    end_thread(m_chargerThread, m_runChargerThread);
    end_thread(m_fanThread, m_runFanThread);
    end_bus_and_maintenance();
}

bool OrvanPortableDevice::InitHW()
{
    set_up_pins();
    m_batteryIsAlive = false;
    if (!set_up_chip(kChargerAddress, kChargerSetUp)) {
        return init_hw_failed("battery controller setup");
    }
    uint8_t val = 0;
    if (!set_up_module_supply(kExpanderAddress, kExpanderSetUp, val)) {
        return init_hw_failed("GPIO expander initialization");
    }
    m_batteryIsAlive = battery_replies([](I2CFd& battery) {
        uint16_t charge = 0;
        return battery.read16(kRelativeStateOfCharge, charge);
    });
    return true;
}

int OrvanPortableDevice::SetTriggerSource(TriggerSource value)
{
    devConnHandler->setTrgSrc(static_cast<uint8_t>(value));
    return 0;
}

int OrvanPortableDevice::SetTriggerInpImp(OnOff value)
{
    set_trigger_impedance(*devConnHandler, value);
    return 0;
}

int OrvanPortableDevice::GetTriggerInpImp(OnOff& value)
{
    get_trigger_impedance(*devConnHandler, value);
    return 0;
}

int OrvanPortableDevice::GetHardware(uint8_t* value)
{
    value[0] = static_cast<uint8_t>(g_devDefaults.hw_ver[0]);
    return 0;
}

int OrvanPortableDevice::GetOption(uint8_t* value, size_t size)
{
    return copy_options(optPortable_Tbl, value, size);
}

int OrvanPortableDevice::GetOptionsTable(void** table, size_t* size)
{
    return hand_out_options(optPortable_Tbl, table, size);
}

int OrvanPortableDevice::bit_register()
{
    return register_bit_tests(m_bitManager, this);
}

double OrvanPortableDevice::tempSensorReadConvert(uint32_t value)
{
    return sensor_degrees(value, 32.0);
}

} // namespace HaldeElec::Orvan
