// Board start-up, access by access. The two expanders are driven through three handles: the one at 0x20 has
// two, and log messages call the second one 0x21.

#include <wiringPi.h>

#include "board/expanders.h"
#include "board/mcp23017.h"
#include "board/register_steps.h"
#include "board/spi_multiplexer.h"
#include "device/init_hw.h"
#include "hw/hw.h"
#include "orvan_sdk/Benchtop/OrvanBenchtopDevice.h"

namespace HaldeElec::Orvan {
namespace {

constexpr int kStartPins[] = {22, 23};

constexpr uint64_t kMultiplexerStepUs = 50000;
constexpr uint64_t kStartPulseUs = 300;
constexpr uint64_t kStartUs = 3'000'000;

// The power button's interrupt is armed on bit 0x20 of port B, although the wait for its release polls bit
// 0x40.
constexpr uint8_t kButtonInterrupt = 0x20;

constexpr RegisterStep kSetUp0[] = {
    write_value(IOCONA, 0x04), write_value(IOCONB, 0x04), write_value(IODIRA, 0x00),
    write_value(IODIRB, 0x00), write_back(GPIOA),         read_or(GPIOB, 0x04),
};
constexpr RegisterStep kSetUp1[] = {
    write_value(IOCONA, 0x04),
    write_value(IOCONB, 0x40),
    write_value(IODIRA, 0x00),
    write_value(IODIRB, 0x6E),
    read_or(DEFVALB, kButtonInterrupt),
    read_or(INTCONB, kButtonInterrupt),
    read_or(GPINTENB, kButtonInterrupt),
    read_or(GPIOA, 0x04),
    write_back(GPIOB),
};
// The expander at 0x24: before the pulse on the start pins, after it, and once the started parts are running.
constexpr RegisterStep kSetUp2[] = {
    write_value(IOCONA, 0x00), write_value(IOCONB, 0x00), write_value(IODIRA, 0x00),
    write_value(IODIRB, 0x00), read_and(GPIOA, 0xF7),
};
constexpr RegisterStep kStart2[] = {read_or(GPIOA, 0x08), write_value(GPIOB, 0x00)};
constexpr RegisterStep kStarted2[] = {read_or(GPIOA, 0x80), read_and(GPIOB, 0xFE)};

// External modulation off.
constexpr struct {
    int handle;
    RegisterStep step;
} kModulationReset[] = {
    {0, read_or(GPIOB, 0x88)},  {0, read_and(GPIOB, 0x5D)}, {1, read_and(GPIOA, 0x97)},
    {0, read_or(GPIOB, 0x80)},  {0, read_and(GPIOB, 0x5F)}, {1, read_or(GPIOA, 0x20)},
    {0, read_and(GPIOB, 0x7F)}, {0, read_or(GPIOB, 0x80)},
};

void toggle_multiplexer()
{
    static constexpr int kAddresses[][3] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
    digitalWrite(kMultiplexerSelectPin, LOW);
    for (const auto& [pin7, pin21, pin6] : kAddresses) {
        drive_multiplexer_address(pin7, pin21, pin6);
        hw_delay_us(kMultiplexerStepUs);
    }
    digitalWrite(kMultiplexerSelectPin, HIGH);
}

void drive_start_pins(int level)
{
    for (const int pin : kStartPins) {
        digitalWrite(pin, level);
    }
}

void pulse_start_pins()
{
    drive_start_pins(LOW);
    hw_delay_us(kStartPulseUs);
    drive_start_pins(HIGH);
    hw_delay_us(kStartPulseUs);
    drive_start_pins(LOW);
}

} // namespace

bool OrvanBenchtopDevice::InitHW()
{
    wiringPiSetup();
    for (const int pin : {kExpanderResetPin, kStartPins[0], kStartPins[1], kMultiplexerSelectPin}) {
        pinMode(pin, OUTPUT);
    }
    toggle_multiplexer();
    reset_expanders();

    I2CFd exp0(kExpanderAddress);
    I2CFd exp1(kExpanderAddress);
    I2CFd exp2(kSecondExpanderAddress);
    uint8_t val = 0;
    if (exp0.isOpen()) {
        take_steps(exp0, kSetUp0, val);
        if (exp0.status != 0) {
            return init_hw_failed("GPIO expander 0x20 initialization");
        }
    }
    if (exp1.isOpen()) {
        take_steps(exp1, kSetUp1, val);
        if (exp1.status != 0) {
            return init_hw_failed("GPIO expander 0x21 initialization");
        }
    }
    if (exp2.isOpen()) {
        take_steps(exp2, kSetUp2, val);
        pulse_start_pins();
        take_steps(exp2, kStart2, val);
        hw_delay_us(kStartUs);
        take_steps(exp2, kStarted2, val);
        if (exp2.status != 0) {
            return init_hw_failed("GPIO expander 0x24 initialization");
        }
    }

    I2CFd* const handles[] = {&exp0, &exp1};
    for (const auto& [handle, step] : kModulationReset) {
        take_step(*handles[handle], step, val);
    }
    return (exp0.status == 0 && exp1.status == 0) || init_hw_failed("external modulations reset");
}

} // namespace HaldeElec::Orvan
