#include <algorithm>

#include <syslog.h>

#include <wiringPi.h>

#include "board/battery.h"
#include "board/charge_monitor.h"
#include "board/expanders.h"
#include "board/mcp23017.h"
#include "hw/hw.h"
#include "orvan_sdk/IDeviceConnectionHandler.h"
#include "orvan_sdk/Portable/OrvanPortableDevice.h"
#include "orvan_sdk/i2cdev.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include "portable_board.h"

namespace HaldeElec::Orvan {
namespace {

constexpr int P_SAFE = 30;    // percent of charge that counts as empty
constexpr int P_DEBOUNCE = 5; // displayed percent from which the module is switched on again
constexpr uint64_t kButtonPollUs = 50'000;

// The displayed charge: P_SAFE is 0 and a full battery 100.
uint16_t usable_charge(uint16_t percentage)
{
    const auto usable = static_cast<float>(std::max(0, percentage - P_SAFE));
    return static_cast<uint16_t>(static_cast<int>(usable / (100 - P_SAFE) * 100));
}

} // namespace

int OrvanPortableDevice::GetBatteryCharge(uint16_t& percentage)
{
    return read_battery_charge(batteryOn, percentage);
}

void OrvanPortableDevice::ChargeMonitor()
{
    static bool orvanx_on = true; // the module has power; shared by all device objects
    int retry = 0;
    for (;;) {
        charge_cycle(retry, orvanx_on);
    }
}

void OrvanPortableDevice::charge_cycle(int& retry, bool& orvanx_on)
{
    uint16_t voltage = 0;
    const auto read_voltage = [&voltage](I2CFd& battery) { battery.read16(kVoltage, voltage); };
    const auto publish_and_switch = [&](const ChargeReading& reading) {
        const uint16_t dispPercent = usable_charge(reading.percentage);
        ::syslog(LOG_INFO, "Battery:%u%% status:%d volt:%.3f", unsigned{reading.percentage}, reading.status,
                 voltage / 1000.0);
        if (Scpi_Orvanx* const modules = Scpi_Orvanx::getInstance()) {
            modules->update_battery_status(dispPercent, reading.status);
        }

        // A failed switch is retried in the next cycle.
        if (dispPercent == 0 && orvanx_on) {
            if (turn_orvanx_on(false) == 0) {
                orvanx_on = false;
            }
        } else if (dispPercent >= P_DEBOUNCE && !orvanx_on) {
            if (turn_orvanx_on(true) == 0) {
                orvanx_on = true;
            }
        }
    };
    run_charge_cycle(devConnHandler->mtx, retry, {read_voltage, publish_and_switch});
}

int OrvanPortableDevice::turn_orvanx_on(bool on)
{
    I2CFd exp(kExpanderAddress);
    if (!exp.isOpen()) {
        return 0;
    }
    i2c_set_bit(exp, OLATA, kModulePower, on);
    if (exp.status != 0) {
        ::syslog(LOG_ERR, "%s: failed to turn orvan %s", __func__, on ? "on" : "off");
    }
    return exp.status;
}

bool OrvanPortableDevice::SetupPowerButtonIrq(void (*handler)())
{
    if (wiringPiISR(BTN_INT_CPU_PIN, INT_EDGE_FALLING, handler) >= 0) {
        return true;
    }
    ::syslog(LOG_USER | LOG_ERR, "%s: unable to setup ISR on pin %d", __func__, BTN_INT_CPU_PIN);
    return false;
}

void OrvanPortableDevice::WaitPowerButtonRelease()
{
    while (digitalRead(BTN_INT_CPU_PIN) == 0) {
        hw_delay_us(kButtonPollUs);
    }
}

} // namespace HaldeElec::Orvan
