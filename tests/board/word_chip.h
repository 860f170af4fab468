/**
 * An I2C chip with 256 registers of 16 bits.
 */
#ifndef ORVAN_TESTS_BOARD_WORD_CHIP_H
#define ORVAN_TESTS_BOARD_WORD_CHIP_H

#include <array>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <utility>

#include "board/smbus_word_device.h"

namespace board_test {

/** A battery or charger with any words a test wants, including invalid ones. */
class WordChip : public sim_board::SmbusWordDevice {
public:
    void set(uint8_t reg, uint16_t word)
    {
        std::lock_guard lock(m_mutex);
        m_words.at(reg) = word;
    }
    /** Called during each access, on its thread; to be set before. */
    void on_access(std::function<void()> watcher) { m_watcher = std::move(watcher); }

private:
    std::optional<uint16_t> word_at(uint8_t reg) const override
    {
        if (m_watcher) {
            m_watcher();
        }
        return m_words.at(reg);
    }
    bool set_word(uint8_t reg, uint16_t word) override
    {
        if (m_watcher) {
            m_watcher();
        }
        m_words.at(reg) = word;
        return true;
    }

    std::array<uint16_t, 256> m_words{};
    std::function<void()> m_watcher;
};

} // namespace board_test

#endif
