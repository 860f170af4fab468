#include "orvan_sdk/Portable/OrvanPortableDevice.h"

#include <new>
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
#include "orvan_sdk/IDeviceConnectionHandler.h"
#include "orvan_sdk/OrvanDebug.h"
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

constexpr DevicePlatform kPlatform{
    "OrvanPortableDevice", g_portableModelsTable, g_devDefaults, optPortable_Tbl, "1.19.140",
};

constexpr int kUnknownCharge = -1;

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

OrvanPortableDevice::OrvanPortableDevice(const char* log_path, int log_mode)
{
    OrvanDebug::SetLogMode(log_mode);
    OrvanDebug::SetLogFile(log_path != nullptr ? log_path : "");
    device_type_product = PortableDevice;
    if (!start_bus(new (std::nothrow) OrvanConnPortable, kPlatform))
        return;
    start_hardware();
    if (!read_settings(kPlatform))
        return;

    const uint32_t eeprom_crc32 = settings_crc();
    apply_model(kPlatform);
    const uOptions_portable_t options{pPersistentData->getSettings()->options};
    batteryOn = options.bat != 0 && m_batteryIsAlive;
    start_modules();
    Scpi_Orvanx::getInstance()->update_battery_status(kUnknownCharge, 0);
    finish_settings(kPlatform, eeprom_crc32);

    fixedPwmFan = false;
    m_runFanThread = true;
    start_thread(m_fanThread, kPlatform.class_name, "fan", [this] { fan_control(devConnHandler); });
    if (batteryOn) {
        m_runChargerThread = true;
        start_thread(m_chargerThread, kPlatform.class_name, "charger", [this] { ChargeMonitor(); });
    }
    start_maintenance();
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
    if (!set_up_chip(kChargerAddress, kChargerSetUp))
        return init_hw_failed("battery controller setup");
    uint8_t val = 0;
    if (!set_up_module_supply(kExpanderAddress, kExpanderSetUp, val))
        return init_hw_failed("GPIO expander initialization");
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
