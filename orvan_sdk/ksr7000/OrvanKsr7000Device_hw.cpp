// Board start-up, access by access. As on the benchtop, the expander at 0x20 is set up through two handles,
// and messages call the second of them 0x21 and the one at 0x24 0x22.

#include <cstdint>

#include <wiringPi.h>

#include "board/battery.h"
#include "board/charge_controller.h"
#include "board/expanders.h"
#include "board/mcp23017.h"
#include "board/module_supply.h"
#include "board/register_steps.h"
#include "device/init_hw.h"
#include "orvan_sdk/i2cdev.h"
#include "orvan_sdk/ksr7000/OrvanKsr7000Device.h"

namespace HaldeElec::Orvan {
namespace {

// The power button, on port B: its interrupt is armed against a compare value of 0.
constexpr uint8_t kButton = 0x40;

constexpr RegisterStep kSetUp0[] = {
    write_value(IOCONA, 0x04), write_value(IOCONB, 0x04), write_value(IODIRA, 0x9F),
    write_value(IODIRB, 0x00), write_back(GPIOA),         change_bits(GPIOB, 0x87, 0x04),
};
constexpr RegisterStep kSetUp1[] = {
    write_value(IOCONA, 0x04),
    write_value(IOCONB, 0x04),
    write_value(IODIRA, 0x00),
    write_value(IODIRB, 0xFF),
    read_and(DEFVALB, static_cast<uint8_t>(~kButton)),
    read_or(INTCONB, kButton),
    read_or(GPINTENB, kButton),
    read_or(GPIOA, 0x04),
    write_back(GPIOB),
};
constexpr RegisterStep kSetUp2[] = {
    write_value(IOCONA, 0x04), write_value(IOCONB, 0x04), write_value(OLATA, 0x00),
    write_value(OLATB, 0x00),  write_value(IODIRA, 0x7F), write_value(IODIRB, 0xFF),
};

constexpr WordStep kChargerSetUp[] = {
    read_and_word(0x12, 0x1FFF), write_word(kChargerRefresh, kChargerRefreshValue),
    write_word(0x31, 0x0237),    write_word(0x14, 0x0800),
    write_word(0x3E, 0x3F00),
};

constexpr uint16_t kBatteryModeValue = 0x6081;

} // namespace

bool OrvanKsr7000Device::InitHW()
{
    wiringPiSetup();
    pinMode(kExpanderResetPin, OUTPUT);
    reset_expanders();
    m_batteryIsAlive = false;
    uint8_t val = 0;
    if (!set_up_chip(kExpanderAddress, kSetUp0, val)) {
        return init_hw_failed("GPIO expander 0x20 initialization");
    }
    if (!set_up_chip(kExpanderAddress, kSetUp1, val)) {
        return init_hw_failed("GPIO expander 0x21 initialization");
    }
    // Drives the SPI enable, which is never made an output on this platform.
    if (!set_up_module_supply(kSecondExpanderAddress, kSetUp2, val)) {
        return init_hw_failed("GPIO expander 0x22 initialization");
    }
    if (!set_up_chip(kChargerAddress, kChargerSetUp)) {
        return init_hw_failed("battery controller setup");
    }
    m_batteryIsAlive =
        battery_replies([](I2CFd& battery) { return battery.write16(kBatteryMode, kBatteryModeValue); });
    return true;
}

} // namespace HaldeElec::Orvan
