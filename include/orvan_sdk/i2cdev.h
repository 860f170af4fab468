/**
 * A short-lived handle to one I2C device, and read-modify-write on its 8-bit registers.
 */
#ifndef ORVAN_SDK_I2CDEV_H
#define ORVAN_SDK_I2CDEV_H

#include <cstdint>

#include "orvan_sdk/orvan_api.h"

namespace HaldeElec::Orvan {

/**
 * One device on the controller's I2C bus, opened for a burst of accesses and closed at the end of its scope.
 * There is no shared handle and no lock: each thread opens its own. It logs nothing.
 *
 * @code
 * I2CFd expander(0x20);
 * if (expander.isOpen()) {
 *     expander.write8(0x00, 0x03);
 *     i2c_set_mask(expander, 0x14, 0x80);
 *     if (expander.status != 0)
 *         ... // some access of the burst has failed
 * }
 * @endcode
 */
class ORVAN_API I2CFd {
public:
    /** @param addr 7-bit device address */
    explicit I2CFd(int addr);
    ~I2CFd();
    I2CFd(const I2CFd&) = delete;
    I2CFd& operator=(const I2CFd&) = delete;

    /** False if the device could not be opened. Descriptor 0 counts as not open, but is still closed. */
    bool isOpen() const;

    /**
     * SMBus read byte and read word (low byte first). On failure `val` keeps its value.
     * @return 0, or -1 with `status` set
     */
    int read8(int reg, uint8_t& val);
    int read16(int reg, uint16_t& val);

    /** SMBus write byte and write word (low byte first). @return 0, or -1 with `status` set */
    int write8(int reg, uint8_t val);
    int write16(int reg, uint16_t val);

    /** 0 until an access fails, then -1 for good. Opening alone never changes it. */
    int status;

private:
    int m_fd;
};

/**
 * Sets or clears the bits of a mask in a register.
 *
 * A failed read counts as 0 and the write is still sent: the failure shows only in `fd.status`.
 *
 * @param bit mask of the bits
 * @return the result of the write: 0 or -1
 */
ORVAN_API int i2c_set_bit(I2CFd& fd, uint8_t reg, uint8_t bit, bool set);
ORVAN_API int i2c_clr_mask(I2CFd& fd, uint8_t reg, uint8_t mask);
ORVAN_API int i2c_set_mask(I2CFd& fd, uint8_t reg, uint8_t mask);

} // namespace HaldeElec::Orvan

#endif
