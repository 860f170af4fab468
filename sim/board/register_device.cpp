#include "board/register_device.h"

namespace sim_board {

bool RegisterDevice::write(std::span<const uint8_t> bytes)
{
    std::lock_guard lock(m_mutex);
    if (m_in_reset) {
        return false;
    }
    if (bytes.empty()) {
        return true;
    }
    m_pointer = bytes.front();
    for (const uint8_t value : bytes.subspan(1)) {
        write_register(m_pointer, value);
        m_pointer = following(m_pointer);
        report_outputs();
    }
    return true;
}

bool RegisterDevice::read(std::span<uint8_t> bytes)
{
    std::lock_guard lock(m_mutex);
    if (m_in_reset) {
        return false;
    }
    for (uint8_t& value : bytes) {
        value = read_register(m_pointer);
        m_pointer = following(m_pointer);
        report_outputs();
    }
    return true;
}

void RegisterDevice::set_reset(bool asserted)
{
    std::lock_guard lock(m_mutex);
    m_in_reset = asserted;
    if (asserted) {
        m_pointer = 0;
        reset_registers();
        report_outputs();
    }
}

} // namespace sim_board
