// The board's start, access by access. As on the benchtop the expander at 0x20 is set up through two handles,
// and messages call the second of them 0x21 and the one at 0x24 0x22.

#include "orvan_sdk/ksr7000/OrvanKsr7000Device.h"

#include <cstdint>
#include <span>
#include <syslog.h>

#include <wiringPi.h>

#include "board/battery.h"
#include "board/mcp23017.h"
#include "board/register_steps.h"
#include "hw/hw.h"
#include "orvan_sdk/i2cdev.h"

namespace HaldeElec::Orvan {
namespace {

constexpr int kExpander = 0x20;
constexpr int kSupplyExpander = 0x24;

constexpr int kExpanderResetPin = 26; // active low
constexpr int kSpiEnablePin = 27;     // never made an output here
constexpr uint64_t kExpanderResetUs = 20'000;
constexpr uint64_t kSupplyUs = 2'000'000;

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

constexpr uint16_t kBatteryModeValue = 0x6081;

void reset_expanders()
{
    pinMode(kExpanderResetPin, OUTPUT);
    digitalWrite(kExpanderResetPin, LOW);
    hw_delay_us(kExpanderResetUs);
    digitalWrite(kExpanderResetPin, HIGH);
}

bool failed(const char* what)
{
    syslog(LOG_ERR, "%s: %s failed", "InitHW", what);
    return false;
}

// A device that can't be opened is not fitted, and its set-up has not failed.

bool set_up_ports(std::span<const RegisterStep> steps, uint8_t& val)
{
    I2CFd exp(kExpander);
    if (exp.isOpen())
        take_steps(exp, steps, val);
    return exp.status == 0;
}

bool set_up_supply(uint8_t& val)
{
    I2CFd exp2(kSupplyExpander);
    if (!exp2.isOpen())
        return true;
    take_steps(exp2, kSetUp2, val);
    if (exp2.status != 0)
        return false;
    hw_delay_us(kSupplyUs);
    digitalWrite(kSpiEnablePin, LOW);
    return true;
}

bool set_up_charger()
{
    I2CFd smb(kChargerAddress);
    if (!smb.isOpen())
        return true;
    uint16_t val = 0;
    smb.read16(0x12, val);
    smb.write16(0x12, val & 0x1FFF);
    smb.write16(kChargerRefresh, kChargerRefreshValue);
    smb.write16(0x31, 0x0237);
    smb.write16(0x14, 0x0800);
    smb.write16(0x3E, 0x3F00);
    return smb.status == 0;
}

} // namespace

bool OrvanKsr7000Device::InitHW()
{
    wiringPiSetup();
    reset_expanders();
    m_batteryIsAlive = false;
    uint8_t val = 0;
    if (!set_up_ports(kSetUp0, val))
        return failed("GPIO expander 0x20 initialization");
    if (!set_up_ports(kSetUp1, val))
        return failed("GPIO expander 0x21 initialization");
    if (!set_up_supply(val))
        return failed("GPIO expander 0x22 initialization");
    if (!set_up_charger())
        return failed("battery controller setup");

    I2CFd smc(kBatteryAddress);
    if (smc.isOpen()) {
        m_batteryIsAlive = smc.write16(kBatteryMode, kBatteryModeValue) == 0;
        if (!m_batteryIsAlive)
            syslog(LOG_INFO, "%s battery doesn't reply", __func__);
    }
    return true;
}

} // namespace HaldeElec::Orvan
