/**
 * Platform-specific parts of the common start-up, IOrvanDeviceManager::start.
 */
#ifndef ORVAN_SDK_DEVICE_START_HOOKS_H
#define ORVAN_SDK_DEVICE_START_HOOKS_H

#include <cstdint>
#include <functional>
#include <optional>

#include "device/device_threads.h"

namespace HaldeElec::Orvan {

struct StartHooks {
    /** Body, flag and place of the fan thread. */
    DeviceThread fan;
    /** The same for the charge monitor, on a platform that may have a battery. */
    std::optional<DeviceThread> charge_monitor = {};
    /** Whether the option for a battery is set in the settings' `options`; comes with `charge_monitor`. */
    bool (*battery_option)(uint16_t options) = nullptr;
    /** Called once the modules are set up. May be empty. */
    std::function<void()> modules_up = {};
};

} // namespace HaldeElec::Orvan

#endif
