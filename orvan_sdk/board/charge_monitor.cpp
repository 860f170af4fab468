#include "charge_monitor.h"

#include <syslog.h>

#include "board/battery.h"
#include "board/charge_controller.h"
#include "hw/hw.h"

namespace HaldeElec::Orvan {
namespace {

constexpr int I2C_MAX_RETRY = 5;
constexpr uint64_t I2C_RETRY_DELAY_US = 100'000;
constexpr uint64_t kPeriodUs = 5'000'000;

void wait_after_failed_reading(int& retry)
{
    if (retry < I2C_MAX_RETRY) {
        ++retry;
        hw_delay_us(I2C_RETRY_DELAY_US);
        return;
    }
    retry = 0;
    ::syslog(LOG_INFO, "%s: Battery access failed", "ChargeMonitor");
    hw_delay_us(kPeriodUs);
}

} // namespace

void run_charge_cycle(std::mutex& bus, int& retry, const ChargeHooks& hooks)
{
    std::unique_lock lock(bus);
    I2CFd charger(kChargerAddress); // both are open for the whole cycle
    I2CFd battery(kBatteryAddress);
    ChargeReading reading;
    uint16_t current = 0;
    charger.write16(kChargerRefresh, kChargerRefreshValue);
    battery.read16(kRelativeStateOfCharge, reading.percentage);
    battery.read16(kCurrent, current);
    if (hooks.read_more) {
        hooks.read_more(battery);
    }
    lock.unlock();

    if (charger.status != 0 || battery.status != 0) {
        wait_after_failed_reading(retry);
        return;
    }
    retry = 0;
    reading.status = charge_status(current);
    hooks.use(reading);
    hw_delay_us(kPeriodUs);
}

} // namespace HaldeElec::Orvan
