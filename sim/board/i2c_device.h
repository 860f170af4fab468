#ifndef ORVAN_SIM_BOARD_I2C_DEVICE_H
#define ORVAN_SIM_BOARD_I2C_DEVICE_H

#include <cstdint>
#include <span>

namespace sim_board {

/**
 * A chip on the I2C bus, as seen after its address byte. The bus makes one call at a time; a chip that tests
 * also control guards its own state.
 *
 * SMBus accesses arrive as these transfers: a byte or word written to a register is one write of the
 * register number and the data, a read is a write of the register number and then a read (repeated start).
 */
class I2cDevice {
public:
    virtual ~I2cDevice() = default;

    /** False if the chip counts as not fitted: its address can't be opened. */
    virtual bool fitted() const { return true; }

    /** The bytes after the address. False: not acknowledged. */
    virtual bool write(std::span<const uint8_t> bytes) = 0;
    /** Fills all of `bytes`. False: the address is not acknowledged. */
    virtual bool read(std::span<uint8_t> bytes) = 0;

    /** The level of its reset input, for a chip that has one. */
    virtual void set_reset(bool asserted) { static_cast<void>(asserted); }
};

} // namespace sim_board

#endif
