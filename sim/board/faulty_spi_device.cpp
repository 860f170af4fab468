#include "board/faulty_spi_device.h"

#include <cerrno>

namespace sim_board {
namespace {

constexpr uint8_t kReadStatus = 0x05;
constexpr uint8_t kBusyBit = 0x01;

} // namespace

void FaultySpiDevice::stuck_busy(bool on)
{
    std::lock_guard lock(m_mutex);
    m_stuck_busy = on;
}

void FaultySpiDevice::flip_reply_bits(uint8_t opcode, size_t index, uint8_t mask)
{
    std::lock_guard lock(m_mutex);
    m_flip = ReplyFlip{opcode, index, mask};
}

void FaultySpiDevice::cut_power_in(uint8_t opcode, size_t bytes)
{
    std::lock_guard lock(m_mutex);
    m_cut = PowerCut{opcode, bytes};
}

bool FaultySpiDevice::dead() const
{
    std::lock_guard lock(m_mutex);
    return m_dead;
}

bool FaultySpiDevice::follows(uint8_t mode, uint32_t hertz) const
{
    return m_chip != nullptr && m_chip->follows(mode, hertz);
}

int FaultySpiDevice::refuse_message()
{
    std::lock_guard lock(m_mutex);
    if (!within_limit()) {
        return EIO;
    }
    return m_chip ? m_chip->refuse_message() : 0;
}

void FaultySpiDevice::select()
{
    std::lock_guard lock(m_mutex);
    m_position = 0;
    if (answers()) {
        m_chip->select();
    }
}

uint8_t FaultySpiDevice::exchange(uint8_t sent)
{
    std::lock_guard lock(m_mutex);
    const size_t position = m_position++;
    if (position == 0) {
        m_opcode = sent;
    }
    if (!answers()) {
        return kFloatingByte;
    }

    uint8_t received = m_chip->exchange(sent);
    if (m_stuck_busy && m_opcode == kReadStatus) {
        received |= kBusyBit;
    }
    if (m_flip && m_flip->opcode == m_opcode && m_flip->index == position) {
        received ^= m_flip->mask;
    }
    if (m_cut && m_cut->opcode == m_opcode && position + 1 >= m_cut->bytes) {
        m_chip->deselect();
        m_cut.reset();
        m_dead = true;
    }
    return received;
}

void FaultySpiDevice::deselect()
{
    std::lock_guard lock(m_mutex);
    if (answers()) {
        m_chip->deselect();
    }
}

void FaultySpiDevice::power_on()
{
    std::lock_guard lock(m_mutex);
    m_dead = false;
    if (m_chip) {
        m_chip->power_on();
    }
}

std::shared_ptr<FaultySpiDevice> insert_fault(SpiBus& bus, std::string_view target)
{
    auto faulty = std::make_shared<FaultySpiDevice>(bus.device(target));
    bus.attach(target, faulty);
    return faulty;
}

} // namespace sim_board
