#include "board/smbus_word_device.h"

#include <stdexcept>

namespace sim_board {

bool SmbusWordDevice::write(std::span<const uint8_t> bytes)
{
    std::lock_guard lock(m_mutex);
    if (bytes.size() == 1) {
        m_command = bytes[0];
    }
    if (bytes.size() < 2) {
        return bytes.empty() || word_at(m_command).has_value();
    }
    return bytes.size() == 3 && set_word(bytes[0], static_cast<uint16_t>(bytes[1] | bytes[2] << 8));
}

bool SmbusWordDevice::read(std::span<uint8_t> bytes)
{
    std::lock_guard lock(m_mutex);
    const auto word = word_at(m_command);
    if (!word) {
        return false;
    }
    for (size_t i = 0; i < bytes.size(); ++i) { // after the word the bus stays high
        bytes[i] = i == 0   ? static_cast<uint8_t>(*word & 0xff)
                   : i == 1 ? static_cast<uint8_t>(*word >> 8)
                            : uint8_t{0xff};
    }
    return true;
}

uint16_t SmbusWordDevice::word(uint8_t command) const
{
    std::lock_guard lock(m_mutex);
    const auto value = word_at(command);
    if (!value) {
        throw std::out_of_range("SmbusWordDevice::word");
    }
    return *value;
}

} // namespace sim_board
