/**
 * The port expanders of the controller boards, all MCP23017.
 */
#ifndef ORVAN_SDK_EXPANDERS_H
#define ORVAN_SDK_EXPANDERS_H

namespace HaldeElec::Orvan {

inline constexpr int kExpanderAddress = 0x20;       /**< on every platform */
inline constexpr int kSecondExpanderAddress = 0x24; /**< on the benchtop and the third platform */

/** Reset input of all of them, active low. */
inline constexpr int kExpanderResetPin = 26;

/** Pulses the reset pin, which must be an output. */
void reset_expanders();

} // namespace HaldeElec::Orvan

#endif
