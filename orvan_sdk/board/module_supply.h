/**
 * The module supply switched by an expander, on the portable and the third platform.
 */
#ifndef ORVAN_SDK_MODULE_SUPPLY_H
#define ORVAN_SDK_MODULE_SUPPLY_H

#include <cstdint>
#include <span>

#include "board/register_steps.h"

namespace HaldeElec::Orvan {

inline constexpr int kSpiEnablePin = 27;

/**
 * Takes the steps that set up the expander, waits 2 seconds for the supply and drives the SPI enable low.
 * If the expander can't be opened it is not fitted: nothing is done, which is not a failure.
 *
 * @return false if an access failed; then there is no wait and the pin is not driven
 */
bool set_up_module_supply(int address, std::span<const RegisterStep> steps, uint8_t& val);

} // namespace HaldeElec::Orvan

#endif
