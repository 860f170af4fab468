/**
 * Platform-specific data for start-up and for the production of new instruments.
 */
#ifndef ORVAN_SDK_DEVICE_PLATFORM_H
#define ORVAN_SDK_DEVICE_PLATFORM_H

#include <cstdint>
#include <new>
#include <span>

#include "orvan_sdk/IOrvanDeviceManager.h"

namespace HaldeElec::Orvan {

/** The SPI port of every controller board. */
inline constexpr uint32_t kSpiBus = 0;
inline constexpr uint32_t kSpiSelect = 1;

/** Each row is defined next to its device class. */
struct DevicePlatform {
    const char* class_name; /**< as in messages */
    DeviceProductType type;
    const sDevArch_t* models;
    const sDevDefaults_t& defaults;
    optEntry_t* options; /**< kOptionRows rows */
    const char* sw_version;
    std::span<const int> select_pins;            /**< outputs that select the settings EEPROM */
    IDeviceConnectionHandler* (*make_handler)(); /**< owned by the caller; null when out of memory */
};

extern const DevicePlatform kPortablePlatform;
extern const DevicePlatform kBenchtopPlatform;
extern const DevicePlatform kKsr7000Platform;

template <class Handler>
IDeviceConnectionHandler* make_handler()
{
    return new (std::nothrow) Handler;
}

} // namespace HaldeElec::Orvan

#endif
