#ifndef ORVAN_SIM_BOARD_SMBUS_WORD_DEVICE_H
#define ORVAN_SIM_BOARD_SMBUS_WORD_DEVICE_H

#include <mutex>
#include <optional>

#include "board/i2c_device.h"

namespace sim_board {

/**
 * A chip whose registers are words, low byte first, each with its own command code (SMBus read word and write
 * word). Unknown command codes are not acknowledged.
 */
class SmbusWordDevice : public I2cDevice {
public:
    bool write(std::span<const uint8_t> bytes) final;
    bool read(std::span<uint8_t> bytes) final;

    /** For tests: what a read of that word returns; throws std::out_of_range for an unknown command code. */
    uint16_t word(uint8_t command) const;

protected:
    /** Both with m_mutex held. Empty, or false, where the register can't be read or written. */
    virtual std::optional<uint16_t> word_at(uint8_t command) const = 0;
    virtual bool set_word(uint8_t command, uint16_t value) = 0;

    mutable std::mutex m_mutex;

private:
    uint8_t m_command = 0;
};

} // namespace sim_board

#endif
