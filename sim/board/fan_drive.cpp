#include "board/fan_drive.h"

namespace sim_board {
namespace {

constexpr size_t kMessageSize = 3;
constexpr int kStandstill = 0xff;

} // namespace

std::optional<uint8_t> FanDrive::value() const
{
    std::lock_guard lock(m_mutex);
    return m_value;
}

int FanDrive::speed() const
{
    std::lock_guard lock(m_mutex);
    return (kStandstill - m_value.value_or(0)) * 100 / kStandstill;
}

size_t FanDrive::messages() const
{
    std::lock_guard lock(m_mutex);
    return m_messages;
}

size_t FanDrive::refused() const
{
    std::lock_guard lock(m_mutex);
    return m_refused;
}

void FanDrive::select()
{
    std::lock_guard lock(m_mutex);
    m_count = 0;
    m_header_is_zero = true;
}

uint8_t FanDrive::exchange(uint8_t sent)
{
    std::lock_guard lock(m_mutex);
    if (++m_count < kMessageSize && sent != 0) {
        m_header_is_zero = false;
    }
    m_last = sent;
    return kFloatingByte;
}

void FanDrive::deselect()
{
    std::lock_guard lock(m_mutex);
    if (m_count == 0) {
        return;
    }
    if (m_count == kMessageSize && m_header_is_zero) {
        m_value = m_last;
        ++m_messages;
    } else {
        ++m_refused;
    }
}

void FanDrive::power_on()
{
    std::lock_guard lock(m_mutex);
    m_value.reset();
}

} // namespace sim_board
