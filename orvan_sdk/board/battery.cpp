#include "battery.h"

#include <syslog.h>

#include "hw/hw.h"

namespace HaldeElec::Orvan {
namespace {

constexpr int I2C_MAX_RETRY = 5;
constexpr uint64_t I2C_RETRY_DELAY_US = 100'000;

} // namespace

int charge_status(uint16_t current)
{
    const auto value = static_cast<int16_t>(current);
    return (value > 0) - (value < 0);
}

int read_battery_charge(bool battery_on, uint16_t& percentage)
{
    percentage = 0;
    if (!battery_on)
        return 0;
    I2CFd bat(kBatteryAddress);
    if (!bat.isOpen() || bat.read16(kRelativeStateOfCharge, percentage) != 0)
        syslog(LOG_ERR, "%s: failed to read battery charge", "GetBatteryCharge");
    return 0;
}

ChargeReading::ChargeReading()
{
    charger.write16(kChargerRefresh, kChargerRefreshValue);
    battery.read16(kRelativeStateOfCharge, percentage);
    battery.read16(kCurrent, current);
}

void wait_after_failed_reading(int& retry)
{
    if (retry < I2C_MAX_RETRY) {
        ++retry;
        hw_delay_us(I2C_RETRY_DELAY_US);
        return;
    }
    retry = 0;
    syslog(LOG_INFO, "%s: Battery access failed", "ChargeMonitor");
    hw_delay_us(kChargePeriodUs);
}

} // namespace HaldeElec::Orvan
