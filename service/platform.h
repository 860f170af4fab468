#ifndef ORVAN_SERVICE_PLATFORM_H
#define ORVAN_SERVICE_PLATFORM_H

namespace HaldeElec::Orvan {
class IOrvanDeviceManager;
}

namespace orvan_service {

enum class Platform {
    kFactory, /**< what the library's own factory makes */
    kPortable,
    kBenchtop,
    kKsr7000,
};

/**
 * Makes the device and so runs the whole start-up on the caller's thread: hardware, settings, modules, boot
 * setup, background threads. Whether it got to its end is the device's Initialized().
 *
 * Its debug log goes to the system log at level info. The device lives as long as the process: its end would
 * wait for the pause of its fan thread, up to two minutes.
 */
HaldeElec::Orvan::IOrvanDeviceManager* start_device(Platform platform);

} // namespace orvan_service

#endif
