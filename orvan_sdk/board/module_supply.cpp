#include "module_supply.h"

#include <wiringPi.h>

#include "hw/hw.h"
#include "orvan_sdk/i2cdev.h"

namespace HaldeElec::Orvan {
namespace {

constexpr uint64_t kRiseUs = 2'000'000;

} // namespace

bool set_up_module_supply(int address, std::span<const RegisterStep> steps, uint8_t& val)
{
    I2CFd expander(address);
    if (!expander.isOpen()) {
        return true;
    }
    take_steps(expander, steps, val);
    if (expander.status != 0) {
        return false;
    }
    hw_delay_us(kRiseUs);
    digitalWrite(kSpiEnablePin, LOW);
    return true;
}

} // namespace HaldeElec::Orvan
