#include "orvan_sdk/ksr7000/OrvanKsr7000Device.h"

#include <iterator>

#include <syslog.h>

#include "board/battery.h"
#include "board/charge_monitor.h"
#include "board/expanders.h"
#include "board/front_panel.h"
#include "board/mcp23017.h"
#include "board/spi_fan.h"
#include "board/spi_multiplexer.h"
#include "board/trigger_impedance.h"
#include "device/device_platform.h"
#include "device/device_threads.h"
#include "device/start_hooks.h"
#include "orvan_sdk/bit/bit_tests.h"
#include "orvan_sdk/i2cdev.h"
#include "orvan_sdk/ksr7000/OrvanConnKsr7000.h"
#include "orvan_sdk/lxi/PersistentData.h"
#include "orvan_sdk/lxi/option_tables.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"

namespace HaldeElec::Orvan {
namespace {

constexpr sDevDefaults_t g_devDefaults{"KSR-7036", "Marrick Signal Corp.", "230000", "D"};

} // namespace

constinit const DevicePlatform kKsr7000Platform{
    .class_name = "OrvanKsr7000Device",
    .type = Ksr7000Device,
    .models = g_ksr7000ModelsTable,
    .defaults = g_devDefaults,
    .options = optKsr7000_Tbl,
    .sw_version = "1.19.148",
    .select_pins = kMultiplexerPins,
    .make_handler = make_handler<OrvanConnKsr7000>,
};

OrvanKsr7000Device::OrvanKsr7000Device(const char* log_path, int log_mode)
{
    start(kKsr7000Platform, log_path, log_mode,
          {.fan = {[this] { fanController(); }, m_runFanThread, m_fanThread},
           .charge_monitor = DeviceThread{[this] { ChargeMonitor(); }, m_runChargerThread, m_chargerThread},
           .battery_option = [](uint16_t options) { return uOptions_ksr7000_t{options}.bat != 0; }});
}

OrvanKsr7000Device::~OrvanKsr7000Device()
{
    end_thread(m_chargerThread, m_runChargerThread);
    end_thread(m_fanThread, m_runFanThread);
    end_bus_and_maintenance();
}

// ---- routing

int OrvanKsr7000Device::SetTriggerInpImp(OnOff value)
{
    set_trigger_impedance(*devConnHandler, value);
    return 0;
}

int OrvanKsr7000Device::GetTriggerInpImp(OnOff& value)
{
    get_trigger_impedance(*devConnHandler, value);
    return 0;
}

int OrvanKsr7000Device::SetRFOutput(OnOff value)
{
    struct ledArr_t {
        uint8_t port;
        uint8_t mask;
    };
    static constexpr ledArr_t ledArry[] = {{GPIOA, 0x20}}; // by channel

    uint32_t ch = 1;
    GetSelectChannel(ch);
    const EEPROM_DEVICE_SETTINGS* const settings =
        pPersistentData != nullptr ? pPersistentData->getSettings() : nullptr;
    if (settings == nullptr || settings->numDevices < ch) {
        return ERR_FAILED;
    }
    // Settings of an unknown model may specify more channels than this platform has.
    if (ch < 1 || ch > std::size(ledArry)) {
        return ERR_FAILED;
    }

    I2CFd exp(kExpanderAddress);
    if (!exp.isOpen()) {
        return ERR_FAILED;
    }
    const auto& [port, mask] = ledArry[ch - 1];
    i2c_set_bit(exp, port, mask, value != Off);
    if (exp.status == 0) {
        return 0;
    }
    ::syslog(LOG_ERR, "%s: failed to set RF output for channel %u", __func__, ch);
    return ERR_FAILED;
}

// ---- identity

int OrvanKsr7000Device::GetHardware(uint8_t* value)
{
    value[0] = static_cast<uint8_t>(g_devDefaults.hw_ver[0]);
    return 0;
}

int OrvanKsr7000Device::GetOption(uint8_t* value, size_t size)
{
    return copy_options(optKsr7000_Tbl, value, size);
}

int OrvanKsr7000Device::GetOptionsTable(void** table, size_t* size)
{
    return hand_out_options(optKsr7000_Tbl, table, size);
}

int OrvanKsr7000Device::bit_register()
{
    return register_bit_tests(m_bitManager, this);
}

// ---- front panel

bool OrvanKsr7000Device::SetupPowerButtonIrq(void (*handler)())
{
    return set_up_power_button(handler);
}

void OrvanKsr7000Device::WaitPowerButtonRelease()
{
    await_power_button_release();
}

void OrvanKsr7000Device::RunKbdServer()
{
    start_keyboard();
}

// ---- fan

void OrvanKsr7000Device::fanController()
{
    control_spi_fan(m_runFanThread, devConnHandler->mtx, m_bitManager,
                    [this](double temp) { return fanSpeed(temp); });
}

int OrvanKsr7000Device::fanSpeed(double temp)
{
    return send_fan_speed(*this, temp);
}

// ---- battery

int OrvanKsr7000Device::GetBatteryCharge(uint16_t& percentage)
{
    return read_battery_charge(batteryOn, percentage);
}

void OrvanKsr7000Device::ChargeMonitor()
{
    int retry = 0;
    while (m_runChargerThread) {
        charge_cycle(retry);
    }
}

void OrvanKsr7000Device::charge_cycle(int& retry)
{
    const auto publish = [](const ChargeReading& reading) {
        ::syslog(LOG_INFO, "Battery: %u%% status: %d", unsigned{reading.percentage}, reading.status);
        if (Scpi_Orvanx* const modules = Scpi_Orvanx::getInstance()) {
            modules->update_battery_status(reading.percentage, reading.status);
        }
    };
    run_charge_cycle(devConnHandler->mtx, retry, {{}, publish});
}

} // namespace HaldeElec::Orvan
