#include "board/charge_controller.h"

#include <algorithm>

namespace sim_board {
namespace {

std::optional<size_t> index_of(uint8_t reg)
{
    const auto* const found =
        std::find(std::begin(ChargeController::kRegisters), std::end(ChargeController::kRegisters), reg);
    if (found == std::end(ChargeController::kRegisters)) {
        return std::nullopt;
    }
    return static_cast<size_t>(found - std::begin(ChargeController::kRegisters));
}

} // namespace

std::optional<uint16_t> ChargeController::word_at(uint8_t command) const
{
    const auto index = index_of(command);
    return index ? std::optional(m_words[*index]) : std::nullopt;
}

bool ChargeController::set_word(uint8_t command, uint16_t value)
{
    const auto index = index_of(command);
    if (index) {
        m_words[*index] = value;
    }
    return index.has_value();
}

} // namespace sim_board
