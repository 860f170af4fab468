#ifndef ORVAN_SERVICE_PLATFORM_H
#define ORVAN_SERVICE_PLATFORM_H

namespace HaldeElec::Orvan {
class IOrvanDeviceManager;
}

namespace orvan_service {

enum class Platform {
    kFactory, /**< the platform chosen by the library */
    kPortable,
    kBenchtop,
    kKsr7000,
};

/**
 * Creates the device, which runs the whole start-up on the caller's thread: hardware, settings, modules, boot
 * setup, background threads. The device's Initialized() reports whether it completed.
 *
 * Its debug log goes to the system log at level info. The device lives as long as the process: destroying it
 * would wait for its fan thread, up to two minutes.
 */
HaldeElec::Orvan::IOrvanDeviceManager* start_device(Platform platform);

} // namespace orvan_service

#endif
