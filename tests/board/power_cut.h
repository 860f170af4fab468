/**
 * An EEPROM that loses its supply in the middle of a write.
 */
#ifndef ORVAN_TESTS_BOARD_POWER_CUT_H
#define ORVAN_TESTS_BOARD_POWER_CUT_H

#include <functional>
#include <memory>
#include <utility>

#include "board/spi_device.h"

namespace board_test {

/**
 * Counts the data bytes of all page writes and cuts the supply after one of them: the bytes of that page
 * received so far are stored, and the chip is dead until the supply returns. Not thread-safe.
 */
class PowerCutChip : public sim_board::SpiDevice {
public:
    explicit PowerCutChip(std::shared_ptr<sim_board::SpiDevice> chip) : m_chip(std::move(chip)) {}

    /** @param at_cut called at the moment of the cut */
    void cut_after(size_t bytes, std::function<void()> at_cut)
    {
        m_left = bytes;
        m_at_cut = std::move(at_cut);
    }
    bool dead() const { return m_dead; }

    bool follows(uint8_t mode, uint32_t hertz) const override { return m_chip->follows(mode, hertz); }
    int refuse_message() override { return m_chip->refuse_message(); }
    void select() override
    {
        m_position = 0;
        if (!m_dead) {
            m_chip->select();
        }
    }
    uint8_t exchange(uint8_t sent) override
    {
        const size_t position = m_position++;
        if (position == 0) {
            m_writes = sent == kWrite;
        }
        const bool data = m_writes && position > kAddressBytes;
        if (data && m_at_cut && !m_dead && m_left == 0) {
            cut();
        }
        if (m_dead) {
            return kDeadByte;
        }
        if (data && m_at_cut) {
            --m_left;
        }
        return m_chip->exchange(sent);
    }
    void deselect() override
    {
        if (m_dead) {
            return;
        }
        if (m_writes && m_at_cut && m_left == 0) {
            cut();
        } else {
            m_chip->deselect();
        }
    }
    void power_on() override
    {
        m_dead = false;
        m_at_cut = nullptr;
        m_chip->power_on();
    }

private:
    static constexpr uint8_t kWrite = 0x02;
    static constexpr size_t kAddressBytes = 2;
    // The processor has lost its supply too, so its answers do not matter. Not busy, so that the
    // operation, which can't be stopped, does not poll a hundred times for each page.
    static constexpr uint8_t kDeadByte = 0;

    void cut()
    {
        m_chip->deselect();
        m_dead = true;
        m_at_cut();
    }

    const std::shared_ptr<sim_board::SpiDevice> m_chip;
    std::function<void()> m_at_cut; // none: no cut
    size_t m_left = 0;
    size_t m_position = 0;
    bool m_writes = false;
    bool m_dead = false;
};

} // namespace board_test

#endif
