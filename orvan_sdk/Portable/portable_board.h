/**
 * Wiring of the portable's controller board.
 */
#ifndef ORVAN_SDK_PORTABLE_PORTABLE_BOARD_H
#define ORVAN_SDK_PORTABLE_PORTABLE_BOARD_H

#include <cstdint>

#include "board/expanders.h"
#include "board/module_supply.h"

namespace HaldeElec::Orvan {

// wiringPi pin numbers.
inline constexpr int USB_INT_PIN = 15;
inline constexpr int I2C_RST_PIN = kExpanderResetPin;
inline constexpr int SPIEN_PIN = kSpiEnablePin;
inline constexpr int BTN_INT_CPU_PIN = 22; /**< 0 while the power button is pressed */
inline constexpr int BTN_KILL_CPU_PIN = 0;
inline constexpr int SPI_CS = 11;
inline constexpr int EEPROM_CS = 16; /**< active low */

/** Pins that must be outputs before the settings EEPROM can be selected. */
inline constexpr int kEepromSelectPins[] = {SPI_CS, SPIEN_PIN, EEPROM_CS};

// Port A of the expander at 0x20. Bits 0 and 1 and bits 3 to 7 of port B are inputs.
inline constexpr uint8_t kModulePower = 0x80;
inline constexpr uint8_t kFansSlow = 0x18;
inline constexpr uint8_t kFansInReset = 0x24;

} // namespace HaldeElec::Orvan

#endif
