/**
 * Bus layer of the third platform: the SPI multiplexer, as the benchtop has it, and no routing.
 */
#ifndef ORVAN_SDK_KSR7000_ORVANCONNKSR7000_H
#define ORVAN_SDK_KSR7000_ORVANCONNKSR7000_H

#include <string>

#include "orvan_sdk/IDeviceConnectionHandler.h"

namespace HaldeElec::Orvan {

/** Of the present channel's number the SPI side knows 4 (fan drive) and 5 (settings EEPROM). */
class OrvanConnKsr7000 : public IDeviceConnectionHandler {
public:
    OrvanConnKsr7000();
    ~OrvanConnKsr7000() override;

    /** The select settles for 10 microseconds. */
    void enableMUX() override;
    void disableMUX() override;
    void configureMuxPins() override;

    /** The text whose characters begin at `characters`, up to a NUL. */
    std::string converter(int* characters);
};

} // namespace HaldeElec::Orvan

#endif
