/**
 * Production: writing the settings of a new instrument.
 */
#ifndef ORVAN_SDK_PRODUCTION_H
#define ORVAN_SDK_PRODUCTION_H

#include <string>

#include "orvan_sdk/orvan_api.h"

namespace HaldeElec::Orvan {

enum class ProductionResult {
    kMade,
    kUnknownModel, /**< nothing was touched */
    kFailed,       /**< the SPI port cannot be opened, or a store did not keep the settings */
};

/**
 * Writes the settings of a new instrument to a controller's EEPROM and backup file. Usable
 * settings that they held are kept, except for model and serial number. Both are read back.
 *
 * Call it once, in a process without a device; on any thread. Failures are reported in the system log. The
 * debug log is silent from then on.
 *
 * @param model  a model of the model tables; it decides the platform
 * @param serial 1 to 30 characters
 */
ORVAN_API ProductionResult ProduceInstrument(const std::string& model, const std::string& serial);

} // namespace HaldeElec::Orvan

#endif
