#include "board/faulty_i2c_device.h"

namespace sim_board {

void FaultyI2cDevice::not_acknowledging(bool on)
{
    std::lock_guard lock(m_mutex);
    m_not_acknowledging = on;
}

I2cFault FaultyI2cDevice::fault() const
{
    std::lock_guard lock(m_mutex);
    if (m_absent) {
        return I2cFault::kAbsent;
    }
    return m_not_acknowledging ? I2cFault::kNotAcknowledging : I2cFault::kNone;
}

void FaultyI2cDevice::flip_read_bits(size_t index, uint8_t mask)
{
    std::lock_guard lock(m_mutex);
    m_flip_index = index;
    m_flip_mask = mask;
}

bool FaultyI2cDevice::fitted() const
{
    std::lock_guard lock(m_mutex);
    return m_chip != nullptr && !m_absent && m_chip->fitted();
}

bool FaultyI2cDevice::acknowledged()
{
    return m_chip != nullptr && !m_absent && !m_not_acknowledging && within_limit();
}

bool FaultyI2cDevice::write(std::span<const uint8_t> bytes)
{
    std::lock_guard lock(m_mutex);
    return acknowledged() && m_chip->write(bytes);
}

bool FaultyI2cDevice::read(std::span<uint8_t> bytes)
{
    std::lock_guard lock(m_mutex);
    if (!acknowledged() || !m_chip->read(bytes)) {
        return false;
    }
    if (m_flip_index < bytes.size()) {
        bytes[m_flip_index] ^= m_flip_mask;
    }
    return true;
}

void FaultyI2cDevice::set_reset(bool asserted)
{
    if (m_chip) {
        m_chip->set_reset(asserted);
    }
}

std::shared_ptr<FaultyI2cDevice> insert_fault(I2cBus& bus, uint8_t address)
{
    auto faulty = std::make_shared<FaultyI2cDevice>(bus.device(address));
    bus.attach(address, faulty);
    return faulty;
}

} // namespace sim_board
