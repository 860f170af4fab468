/**
 * The smart battery and the charge controller beside it, as portable and third platform have them.
 */
#ifndef ORVAN_SDK_BATTERY_H
#define ORVAN_SDK_BATTERY_H

#include <cstdint>

#include "orvan_sdk/i2cdev.h"

namespace HaldeElec::Orvan {

inline constexpr int kChargerAddress = 0x09;
inline constexpr int kBatteryAddress = 0x0B;

// Registers of a smart battery, a word each.
inline constexpr int kBatteryMode = 0x03;
inline constexpr int kVoltage = 0x09;               /**< mV */
inline constexpr int kCurrent = 0x0A;               /**< signed; above 0 while it is charged */
inline constexpr int kRelativeStateOfCharge = 0x0D; /**< percent */

// Of the charge controller; written at set-up and again with every reading of the battery.
inline constexpr int kChargerRefresh = 0x3F;
inline constexpr uint16_t kChargerRefreshValue = 0x7F00;

inline constexpr uint64_t kChargePeriodUs = 5'000'000;

/** 1 while the battery is charged, -1 while it is discharged, else 0. */
int charge_status(uint16_t current);

/** IOrvanDeviceManager::GetBatteryCharge of a platform that may have a battery. @return 0 */
int read_battery_charge(bool battery_on, uint16_t& percentage);

/**
 * A look at charge and current. The charge controller is written to first, as with every reading. Made with
 * the bus held; the handles stay open as long as it lives.
 */
struct ChargeReading {
    ChargeReading();

    /** Of these accesses and of those made since on the same handles. */
    bool failed() const { return charger.status != 0 || battery.status != 0; }

    I2CFd charger{kChargerAddress};
    I2CFd battery{kBatteryAddress};
    uint16_t percentage = 0;
    uint16_t current = 0;
};

/**
 * Waits behind a reading that failed: a tenth of a second for the first five in a row, and then, with a line
 * in the log, a whole period, from where the count begins anew.
 */
void wait_after_failed_reading(int& retry);

} // namespace HaldeElec::Orvan

#endif
