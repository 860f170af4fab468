/**
 * Registers of the 16-bit port expander MCP23017 in its default bank mode (IOCON.BANK = 0).
 */
#ifndef ORVAN_SDK_MCP23017_H
#define ORVAN_SDK_MCP23017_H

#include <cstdint>

namespace HaldeElec::Orvan {

inline constexpr uint8_t IODIRA = 0x00;
inline constexpr uint8_t IODIRB = 0x01;
inline constexpr uint8_t GPINTENB = 0x05;
inline constexpr uint8_t DEFVALB = 0x07;
inline constexpr uint8_t INTCONB = 0x09;
inline constexpr uint8_t IOCONA = 0x0A; /**< one register, seen at both addresses */
inline constexpr uint8_t IOCONB = 0x0B;
inline constexpr uint8_t INTCAPB = 0x11;
inline constexpr uint8_t GPIOA = 0x12;
inline constexpr uint8_t GPIOB = 0x13;
inline constexpr uint8_t OLATA = 0x14;
inline constexpr uint8_t OLATB = 0x15;

} // namespace HaldeElec::Orvan

#endif
