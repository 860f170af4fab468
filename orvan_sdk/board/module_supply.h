/**
 * The supply that an expander switches on, as portable and third platform have it.
 */
#ifndef ORVAN_SDK_MODULE_SUPPLY_H
#define ORVAN_SDK_MODULE_SUPPLY_H

#include <cstdint>
#include <span>

#include "board/register_steps.h"

namespace HaldeElec::Orvan {

inline constexpr int kSpiEnablePin = 27;

/**
 * Takes the steps that set the expander up, lets the supply rise for 2 seconds and drives the SPI enable low.
 * An expander that can't be opened is not fitted: nothing of this is done, and nothing has failed.
 *
 * @return false when an access failed; then there is neither wait nor pin
 */
bool set_up_module_supply(int address, std::span<const RegisterStep> steps, uint8_t& val);

} // namespace HaldeElec::Orvan

#endif
