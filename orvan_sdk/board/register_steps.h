/**
 * Table-driven set-up of an I2C chip's registers.
 */
#ifndef ORVAN_SDK_REGISTER_STEPS_H
#define ORVAN_SDK_REGISTER_STEPS_H

#include <cstdint>
#include <span>

#include "orvan_sdk/i2cdev.h"

namespace HaldeElec::Orvan {

/** One register write, or read-modify-write. */
template <class Value>
struct BasicRegisterStep {
    uint8_t reg;
    bool reads;
    Value keep; /**< bits kept of the value read */
    Value set;  /**< bits then set, or the value of a plain write */
};
using RegisterStep = BasicRegisterStep<uint8_t>; /**< read8 and write8 */
using WordStep = BasicRegisterStep<uint16_t>;    /**< read16 and write16 */

constexpr RegisterStep write_value(uint8_t reg, uint8_t value)
{
    return {reg, false, 0x00, value};
}
constexpr RegisterStep read_or(uint8_t reg, uint8_t bits)
{
    return {reg, true, 0xFF, bits};
}
constexpr RegisterStep read_and(uint8_t reg, uint8_t bits)
{
    return {reg, true, bits, 0x00};
}
constexpr RegisterStep change_bits(uint8_t reg, uint8_t keep, uint8_t set)
{
    return {reg, true, keep, set};
}
constexpr RegisterStep write_back(uint8_t reg)
{
    return {reg, true, 0xFF, 0x00};
}

constexpr WordStep write_word(uint8_t reg, uint16_t value)
{
    return {reg, false, 0x0000, value};
}
constexpr WordStep read_or_word(uint8_t reg, uint16_t bits)
{
    return {reg, true, 0xFFFF, bits};
}
constexpr WordStep read_and_word(uint8_t reg, uint16_t bits)
{
    return {reg, true, bits, 0x0000};
}

/**
 * Takes a step. A failure shows only in the handle's `status`.
 *
 * @param val the last value read and modified: a failed read leaves it, and the step then modifies it
 */
void take_step(I2CFd& chip, const RegisterStep& step, uint8_t& val);

/** Takes all steps, even after a failed one. */
void take_steps(I2CFd& chip, std::span<const RegisterStep> steps, uint8_t& val);

/**
 * Opens a chip, takes all steps and closes it. A chip that can't be opened is not fitted, which is not a
 * failure.
 *
 * @return false when an access failed
 */
bool set_up_chip(int address, std::span<const RegisterStep> steps, uint8_t& val);
bool set_up_chip(int address, std::span<const WordStep> steps);

} // namespace HaldeElec::Orvan

#endif
