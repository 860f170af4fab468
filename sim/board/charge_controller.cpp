#include "board/charge_controller.h"

#include <algorithm>
#include <stdexcept>

namespace sim_board {
namespace {

std::optional<std::size_t> index_of(std::uint8_t reg)
{
    const auto* const found =
        std::find(std::begin(ChargeController::kRegisters), std::end(ChargeController::kRegisters), reg);
    if (found == std::end(ChargeController::kRegisters))
        return std::nullopt;
    return static_cast<std::size_t>(found - std::begin(ChargeController::kRegisters));
}

} // namespace

std::uint16_t ChargeController::word(std::uint8_t reg) const
{
    std::lock_guard lock(m_mutex);
    const auto value = word_at(reg);
    if (!value)
        throw std::out_of_range("ChargeController::word");
    return *value;
}

std::optional<std::uint16_t> ChargeController::word_at(std::uint8_t command) const
{
    const auto index = index_of(command);
    return index ? std::optional(m_words[*index]) : std::nullopt;
}

bool ChargeController::set_word(std::uint8_t command, std::uint16_t value)
{
    const auto index = index_of(command);
    if (index)
        m_words[*index] = value;
    return index.has_value();
}

} // namespace sim_board
