#ifndef ORVAN_SIM_BOARD_REGISTER_DEVICE_H
#define ORVAN_SIM_BOARD_REGISTER_DEVICE_H

#include <mutex>

#include "board/i2c_device.h"

namespace sim_board {

/**
 * A chip whose registers are bytes. The first byte written is a register's address and the others its value
 * and those of the following registers; a read begins where the last transfer ended. In reset the chip
 * acknowledges nothing.
 */
class RegisterDevice : public I2cDevice {
public:
    bool write(std::span<const uint8_t> bytes) final;
    bool read(std::span<uint8_t> bytes) final;
    /** Resets all registers to their power-on values; the chip acknowledges nothing until released. */
    void set_reset(bool asserted) final;

protected:
    // All with m_mutex held.
    virtual uint8_t read_register(uint8_t address) = 0;
    virtual void write_register(uint8_t address, uint8_t value) = 0;
    /** The address after this one. */
    virtual uint8_t following(uint8_t address) const = 0;
    virtual void reset_registers() = 0;
    /** Reports the outputs that have changed; called after each register of a transfer and after a reset. */
    virtual void report_outputs() = 0;

    bool in_reset() const { return m_in_reset; }

    mutable std::mutex m_mutex;

private:
    uint8_t m_pointer = 0;
    bool m_in_reset = false;
};

} // namespace sim_board

#endif
