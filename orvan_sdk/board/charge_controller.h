/**
 * The battery's charge controller on the portable and the third platform.
 */
#ifndef ORVAN_SDK_CHARGE_CONTROLLER_H
#define ORVAN_SDK_CHARGE_CONTROLLER_H

#include <cstdint>

namespace HaldeElec::Orvan {

inline constexpr int kChargerAddress = 0x09;

/** A register of 16 bits, written at set-up and before every reading of the battery. */
inline constexpr uint8_t kChargerRefresh = 0x3F;
inline constexpr uint16_t kChargerRefreshValue = 0x7F00;

} // namespace HaldeElec::Orvan

#endif
