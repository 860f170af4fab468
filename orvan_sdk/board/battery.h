/**
 * The smart battery of the portable and the third platform.
 */
#ifndef ORVAN_SDK_BATTERY_H
#define ORVAN_SDK_BATTERY_H

#include <cstdint>
#include <functional>

#include "orvan_sdk/i2cdev.h"

namespace HaldeElec::Orvan {

inline constexpr int kBatteryAddress = 0x0B;

// Registers of a smart battery, a word each.
inline constexpr int kBatteryMode = 0x03;
inline constexpr int kVoltage = 0x09;               /**< mV */
inline constexpr int kCurrent = 0x0A;               /**< signed; above 0 while charging */
inline constexpr int kRelativeStateOfCharge = 0x0D; /**< percent */

/** 1 while the battery is charging, -1 while discharging, else 0. */
int charge_status(uint16_t current);

/** IOrvanDeviceManager::GetBatteryCharge of a platform that may have a battery. @return 0 */
int read_battery_charge(bool battery_on, uint16_t& percentage);

/**
 * Looks for a battery at start-up; one that does not reply is logged.
 *
 * @param access accesses it and returns 0 or -1. Not called if the battery cannot be opened
 */
bool battery_replies(const std::function<int(I2CFd& battery)>& access);

} // namespace HaldeElec::Orvan

#endif
