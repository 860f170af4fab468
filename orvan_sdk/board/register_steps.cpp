#include "register_steps.h"

namespace HaldeElec::Orvan {

void take_step(I2CFd& chip, const RegisterStep& step, uint8_t& val)
{
    if (!step.reads) {
        chip.write8(step.reg, step.set);
        return;
    }
    chip.read8(step.reg, val);
    val = static_cast<uint8_t>((val & step.keep) | step.set);
    chip.write8(step.reg, val);
}

void take_steps(I2CFd& chip, std::span<const RegisterStep> steps, uint8_t& val)
{
    for (const RegisterStep& step : steps)
        take_step(chip, step, val);
}

} // namespace HaldeElec::Orvan
