#include "expanders.h"

#include <cstdint>

#include <wiringPi.h>

#include "hw/hw.h"

namespace HaldeElec::Orvan {
namespace {

constexpr uint64_t kResetUs = 20'000;

} // namespace

void reset_expanders()
{
    digitalWrite(kExpanderResetPin, LOW);
    hw_delay_us(kResetUs);
    digitalWrite(kExpanderResetPin, HIGH);
}

} // namespace HaldeElec::Orvan
