#include "orvan_sdk/i2cdev.h"

#include <unistd.h>

#include <wiringPiI2C.h>

namespace HaldeElec::Orvan {
namespace {

// Stores what a read returned, if it is not negative; else marks the failure.
template <class Value>
int take(int result, Value& value, int& status)
{
    if (result < 0) {
        return status = -1;
    }
    value = static_cast<Value>(result);
    return 0;
}

} // namespace

I2CFd::I2CFd(int addr) : status(0), m_fd(wiringPiI2CSetup(addr)) {}

I2CFd::~I2CFd()
{
    if (m_fd >= 0) {
        ::close(m_fd);
    }
}

bool I2CFd::isOpen() const
{
    return m_fd > 0;
}

int I2CFd::read8(int reg, uint8_t& val)
{
    return take(wiringPiI2CReadReg8(m_fd, reg), val, status);
}

int I2CFd::read16(int reg, uint16_t& val)
{
    return take(wiringPiI2CReadReg16(m_fd, reg), val, status);
}

int I2CFd::write8(int reg, uint8_t val)
{
    return wiringPiI2CWriteReg8(m_fd, reg, val) < 0 ? status = -1 : 0;
}

int I2CFd::write16(int reg, uint16_t val)
{
    return wiringPiI2CWriteReg16(m_fd, reg, val) < 0 ? status = -1 : 0;
}

int i2c_set_bit(I2CFd& fd, uint8_t reg, uint8_t bit, bool set)
{
    uint8_t value = 0;
    fd.read8(reg, value);
    return fd.write8(reg, static_cast<uint8_t>(set ? value | bit : value & ~bit));
}

int i2c_clr_mask(I2CFd& fd, uint8_t reg, uint8_t mask)
{
    return i2c_set_bit(fd, reg, mask, false);
}

int i2c_set_mask(I2CFd& fd, uint8_t reg, uint8_t mask)
{
    return i2c_set_bit(fd, reg, mask, true);
}

} // namespace HaldeElec::Orvan
