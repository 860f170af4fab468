/**
 * The multiplexer with three address lines that shares one SPI port among the chips of the benchtop and the
 * third platform.
 */
#ifndef ORVAN_SDK_SPI_MULTIPLEXER_H
#define ORVAN_SDK_SPI_MULTIPLEXER_H

#include <cstdint>

namespace HaldeElec::Orvan {

/** Channel numbers that are SPI targets; every other number selects an unused address. */
inline constexpr uint32_t kFanChannel = 4;
inline constexpr uint32_t kEepromChannel = 5;

/** Its pins: the select, active low, and the address lines. */
inline constexpr int kMultiplexerPins[] = {11, 7, 21, 6};
inline constexpr int kMultiplexerSelectPin = kMultiplexerPins[0];

/** Makes the address lines outputs, all at 0. The select is left to the platform's set-up. */
void configure_multiplexer();

/** Addresses a channel, asserts the select and waits for the lines to settle. */
void select_through_multiplexer(uint32_t channel);

/** Releases the select; the address lines are left unchanged. */
void release_multiplexer();

/** Sets the level of each address line, in the order of pins 7, 21 and 6. */
void drive_multiplexer_address(int pin7, int pin21, int pin6);

} // namespace HaldeElec::Orvan

#endif
