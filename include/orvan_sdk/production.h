/**
 * Production: the settings of a new instrument.
 */
#ifndef ORVAN_SDK_PRODUCTION_H
#define ORVAN_SDK_PRODUCTION_H

#include <string>

#include "orvan_sdk/orvan_api.h"

namespace HaldeElec::Orvan {

enum class ProductionResult {
    kMade,
    kUnknownModel, /**< nothing was touched */
    kFailed,       /**< the SPI port does not open, or a store does not hold the settings */
};

/**
 * Gives a controller the settings of a new instrument, in its EEPROM and in its backup file. What they held
 * is kept where it is usable, but for model and serial number. Both are read back.
 *
 * Once in a process, and in one without a device; on any thread. What is wrong goes to the system log. The
 * debug log is silent from then on.
 *
 * @param model  one of the model tables'; it decides the platform
 * @param serial 1 to 30 characters
 */
ORVAN_API ProductionResult ProduceInstrument(const std::string& model, const std::string& serial);

} // namespace HaldeElec::Orvan

#endif
