#ifndef ORVAN_SERVICE_SETTINGS_H
#define ORVAN_SERVICE_SETTINGS_H

#include "orvan_sdk/lxi/PersistentData.h"

#include <memory>

namespace orvan_service {

/**
 * The settings record at start-up, in the order of a device's own start: the built-in tests are registered,
 * the record is taken from the EEPROM or its backup file, whichever tells the truth, the other one is healed,
 * and the record follows the model. With neither usable the factory's settings stand.
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

    /**
     * Ends the start-up, once the modules have told of themselves and the network is known: fills the
     * identification rows, sets the system's host name, and stores the record if the start has changed it.
     */
    void apply();

private:
    std::unique_ptr<HaldeElec::Orvan::IDeviceConnectionHandler> m_bus;
    HaldeElec::Orvan::CPersistentData* m_data = nullptr;
    HaldeElec::Orvan::optEntry_t* m_options = nullptr;
    HaldeElec::Orvan::EEPROM_DEVICE_SETTINGS m_as_read;
};

} // namespace orvan_service

#endif
