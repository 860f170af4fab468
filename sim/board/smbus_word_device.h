#pragma once

#include "board/i2c_device.h"

#include <mutex>
#include <optional>

namespace sim_board {

/// A chip whose registers are words, low byte first, each with a command code of its own (SMBus read word and
/// write word). A command code that it does not have is not acknowledged.
class SmbusWordDevice : public I2cDevice {
public:
    bool write(std::span<const std::uint8_t> bytes) final;
    bool read(std::span<std::uint8_t> bytes) final;

protected:
    /// Both with m_mutex held. Empty, or false, where there is nothing to read or to write.
    virtual std::optional<std::uint16_t> word_at(std::uint8_t command) const = 0;
    virtual bool set_word(std::uint8_t command, std::uint16_t value) = 0;

    mutable std::mutex m_mutex;

private:
    std::uint8_t m_command = 0;
};

} // namespace sim_board
