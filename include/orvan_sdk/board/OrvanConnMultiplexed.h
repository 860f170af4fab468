/**
 * Bus layer of a controller board whose SPI port is routed through a multiplexer with three address lines.
 */
#ifndef ORVAN_SDK_BOARD_ORVANCONNMULTIPLEXED_H
#define ORVAN_SDK_BOARD_ORVANCONNMULTIPLEXED_H

#include <string>

#include "orvan_sdk/IDeviceConnectionHandler.h"
#include "orvan_sdk/orvan_api.h"

namespace HaldeElec::Orvan {

/** Base of the benchtop's and the third platform's connection. The SPI side
 *  uses channel numbers 4 (fan drive) and 5 (settings EEPROM). */
class ORVAN_API OrvanConnMultiplexed : public IDeviceConnectionHandler {
public:
    /** Closes the port. */
    ~OrvanConnMultiplexed() override;

    /** The select settles for 10 microseconds. */
    void enableMUX() override;
    void disableMUX() override;
    void configureMuxPins() override;

    /** The text whose characters begin at `characters`, up to a NUL. */
    std::string converter(int* characters);

protected:
    OrvanConnMultiplexed() = default;
};

} // namespace HaldeElec::Orvan

#endif
