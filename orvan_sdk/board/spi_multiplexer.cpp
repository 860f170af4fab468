#include "spi_multiplexer.h"

#include <span>

#include <wiringPi.h>

#include "hw/hw.h"

namespace HaldeElec::Orvan {
namespace {

constexpr auto kAddressPins = std::span(kMultiplexerPins).subspan(1);
constexpr uint64_t kSettlingUs = 10;

} // namespace

void drive_multiplexer_address(int pin7, int pin21, int pin6)
{
    digitalWrite(kAddressPins[0], pin7);
    digitalWrite(kAddressPins[1], pin21);
    digitalWrite(kAddressPins[2], pin6);
}

void configure_multiplexer()
{
    for (const int pin : kAddressPins) {
        pinMode(pin, OUTPUT);
    }
    drive_multiplexer_address(0, 0, 0);
}

void select_through_multiplexer(uint32_t channel)
{
    switch (channel) {
    case kEepromChannel:
        drive_multiplexer_address(1, 0, 1);
        break;
    case kFanChannel:
        drive_multiplexer_address(0, 0, 1);
        break;
    default:
        drive_multiplexer_address(1, 1, 1);
        break;
    }
    digitalWrite(kMultiplexerSelectPin, LOW);
    hw_delay_us(kSettlingUs);
}

void release_multiplexer()
{
    digitalWrite(kMultiplexerSelectPin, HIGH);
}

} // namespace HaldeElec::Orvan
