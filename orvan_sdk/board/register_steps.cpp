#include "register_steps.h"

namespace HaldeElec::Orvan {
namespace {

void read(I2CFd& chip, uint8_t reg, uint8_t& val)
{
    chip.read8(reg, val);
}

void read(I2CFd& chip, uint8_t reg, uint16_t& val)
{
    chip.read16(reg, val);
}

void write(I2CFd& chip, uint8_t reg, uint8_t val)
{
    chip.write8(reg, val);
}

void write(I2CFd& chip, uint8_t reg, uint16_t val)
{
    chip.write16(reg, val);
}

template <class Value>
void take(I2CFd& chip, const BasicRegisterStep<Value>& step, Value& val)
{
    if (!step.reads) {
        write(chip, step.reg, step.set);
        return;
    }
    read(chip, step.reg, val);
    val = static_cast<Value>((val & step.keep) | step.set);
    write(chip, step.reg, val);
}

template <class Value>
void take_all(I2CFd& chip, std::span<const BasicRegisterStep<Value>> steps, Value& val)
{
    for (const BasicRegisterStep<Value>& step : steps) {
        take(chip, step, val);
    }
}

template <class Value>
bool set_up(int address, std::span<const BasicRegisterStep<Value>> steps, Value& val)
{
    I2CFd chip(address);
    if (chip.isOpen()) {
        take_all(chip, steps, val);
    }
    return chip.status == 0;
}

} // namespace

void take_step(I2CFd& chip, const RegisterStep& step, uint8_t& val)
{
    take(chip, step, val);
}

void take_steps(I2CFd& chip, std::span<const RegisterStep> steps, uint8_t& val)
{
    take_all(chip, steps, val);
}

bool set_up_chip(int address, std::span<const RegisterStep> steps, uint8_t& val)
{
    return set_up(address, steps, val);
}

bool set_up_chip(int address, std::span<const WordStep> steps)
{
    uint16_t val = 0;
    return set_up(address, steps, val);
}

} // namespace HaldeElec::Orvan
