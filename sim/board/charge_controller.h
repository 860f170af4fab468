#ifndef ORVAN_SIM_BOARD_CHARGE_CONTROLLER_H
#define ORVAN_SIM_BOARD_CHARGE_CONTROLLER_H

#include <array>
#include <cstdint>

#include "board/smbus_word_device.h"

namespace sim_board {

/**
 * The battery charge controller: the word registers that the controller writes, which keep their value and
 * are 0 at power-on. The effect of their bits is not modelled. Thread-safe.
 */
class ChargeController : public SmbusWordDevice {
public:
    static constexpr uint8_t kRegisters[] = {0x12, 0x14, 0x31, 0x3e, 0x3f};

private:
    std::optional<uint16_t> word_at(uint8_t command) const override;
    bool set_word(uint8_t command, uint16_t value) override;

    std::array<uint16_t, std::size(kRegisters)> m_words{};
};

} // namespace sim_board

#endif
