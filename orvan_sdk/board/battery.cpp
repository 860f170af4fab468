#include "battery.h"

#include <syslog.h>

namespace HaldeElec::Orvan {

int charge_status(uint16_t current)
{
    const auto value = static_cast<int16_t>(current);
    return (value > 0) - (value < 0);
}

int read_battery_charge(bool battery_on, uint16_t& percentage)
{
    percentage = 0;
    if (!battery_on) {
        return 0;
    }
    I2CFd bat(kBatteryAddress);
    if (!bat.isOpen() || bat.read16(kRelativeStateOfCharge, percentage) != 0) {
        ::syslog(LOG_ERR, "%s: failed to read battery charge", "GetBatteryCharge");
    }
    return 0;
}

bool battery_replies(const std::function<int(I2CFd& battery)>& access)
{
    I2CFd bat(kBatteryAddress);
    if (!bat.isOpen()) {
        return false;
    }
    if (access(bat) == 0) {
        return true;
    }
    ::syslog(LOG_INFO, "%s battery doesn't reply", "InitHW");
    return false;
}

} // namespace HaldeElec::Orvan
