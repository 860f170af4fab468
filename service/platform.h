#ifndef ORVAN_SERVICE_PLATFORM_H
#define ORVAN_SERVICE_PLATFORM_H

#include <string>

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

/**
 * Production: gives a controller the settings of a new instrument, in its EEPROM and in its backup file. What
 * they held is kept where it is usable, but for model and serial number.
 *
 * @param model one of the model tables'; it decides the platform
 * @param serial 1 to 30 characters
 * @return exit code of the program; what is wrong goes to the system log
 */
int produce(const std::string& model, const std::string& serial);

} // namespace orvan_service

#endif
