#ifndef ORVAN_SIM_BOARD_FAULTY_I2C_DEVICE_H
#define ORVAN_SIM_BOARD_FAULTY_I2C_DEVICE_H

#include <cstddef>
#include <memory>

#include "board/chip_faults.h"
#include "board/i2c_bus.h"
#include "board/i2c_device.h"

namespace sim_board {

enum class I2cFault { kNone, kAbsent, kNotAcknowledging };

/**
 * Injects faults in front of a chip; everything else is passed through. Thread-safe.
 *
 * The address of an absent chip can't be opened. A transfer beyond the limit is not acknowledged; a register
 * read is two transfers, a write one.
 */
class FaultyI2cDevice : public I2cDevice, public ChipFaults {
public:
    /** `chip` may be null: not fitted, whatever the faults. */
    explicit FaultyI2cDevice(std::shared_ptr<I2cDevice> chip) : m_chip(std::move(chip)) {}

    /** The address can be opened, but no access is acknowledged. */
    void not_acknowledging(bool on);
    /** Which of this and absent() is active; absent takes precedence. */
    I2cFault fault() const;
    /** Flips the bits of `mask` in byte `index` of every read; mask 0 ends that. */
    void flip_read_bits(size_t index, uint8_t mask);

    bool fitted() const override;
    bool write(std::span<const uint8_t> bytes) override;
    bool read(std::span<uint8_t> bytes) override;
    void set_reset(bool asserted) override;

private:
    bool acknowledged();

    const std::shared_ptr<I2cDevice> m_chip;
    bool m_not_acknowledging = false;
    size_t m_flip_index = 0;
    uint8_t m_flip_mask = 0;
};

/** Puts a faulty device in front of what is at that address of the bus now. */
std::shared_ptr<FaultyI2cDevice> insert_fault(I2cBus& bus, uint8_t address);

} // namespace sim_board

#endif
