#ifndef ORVAN_SERVICE_SETTINGS_H
#define ORVAN_SERVICE_SETTINGS_H

#include <memory>

namespace HaldeElec::Orvan {
class IDeviceConnectionHandler;
}

namespace orvan_service {

/**
 * The settings record at start-up: read from the EEPROM and its backup file, the factory identity where
 * neither holds a usable one.
 *
 * To be made before the module service, whose parser keeps pointers into the record. It keeps the bus of
 * the EEPROM open as long as it lives; the record itself lives as long as the process.
 */
class Settings {
public:
    Settings();
    ~Settings();
    Settings(const Settings&) = delete;
    Settings& operator=(const Settings&) = delete;

private:
    std::unique_ptr<HaldeElec::Orvan::IDeviceConnectionHandler> m_bus;
};

} // namespace orvan_service

#endif
