/**
 * Bus layer of the portable: the settings EEPROM is the only SPI target.
 */
#ifndef ORVAN_SDK_PORTABLE_ORVANCONNPORTABLE_H
#define ORVAN_SDK_PORTABLE_ORVANCONNPORTABLE_H

#include "orvan_sdk/IDeviceConnectionHandler.h"
#include "orvan_sdk/orvan_api.h"

namespace HaldeElec::Orvan {

/** Routing and impedance are inherited; the select ignores the channel number. */
class ORVAN_API OrvanConnPortable : public IDeviceConnectionHandler {
public:
    OrvanConnPortable();
    ~OrvanConnPortable() override;

    /** Drives the select pins without delay; the board needs no settling time. */
    void enableMUX() override;
    void disableMUX() override;
};

} // namespace HaldeElec::Orvan

#endif
