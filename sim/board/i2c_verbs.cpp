#include <charconv>
#include <cstdio>
#include <optional>

#include "board/board_verbs.h"
#include "board/faulty_i2c_device.h"

namespace sim_board {
namespace {

struct FaultName {
    std::string_view word;
    I2cFault fault;
};
constexpr FaultName kFaults[] = {
    {"ok", I2cFault::kNone},
    {"absent", I2cFault::kAbsent},
    {"nack", I2cFault::kNotAcknowledging},
};

// "0x20", as in data sheets and the trace, or decimal.
std::optional<uint8_t> address_of(std::string_view text)
{
    const bool is_hex = text.starts_with("0x") || text.starts_with("0X");
    const std::string_view digits = text.substr(is_hex ? 2 : 0);
    unsigned value = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), value, is_hex ? 16 : 10);
    if (error != std::errc() || end != digits.data() + digits.size() || value > 0x7f) {
        return std::nullopt;
    }
    return static_cast<uint8_t>(value);
}

std::string list_chips(Board& board)
{
    std::string lines;
    for (const uint8_t address : board.i2c().addresses()) {
        const auto faulty = std::dynamic_pointer_cast<FaultyI2cDevice>(board.i2c().device(address));
        const I2cFault now = faulty ? faulty->fault() : I2cFault::kNone;
        for (const FaultName& name : kFaults) {
            if (name.fault != now) {
                continue;
            }
            char line[32];
            std::snprintf(line, sizeof line, "0x%02x  %.*s\n", address, static_cast<int>(name.word.size()),
                          name.word.data());
            lines += line;
        }
    }
    return verb_done(lines);
}

std::string set_fault(Board& board, Words words)
{
    if (words.empty()) {
        return list_chips(board);
    }
    const auto address = address_of(words[0]);
    if (!address) {
        return verb_error("an I2C address from 0x00 to 0x7f expected, not '" + std::string(words[0]) + "'");
    }
    if (words.size() < 2) {
        return verb_error("'absent', 'nack' or 'ok' expected");
    }
    const FaultName* chosen = nullptr;
    for (const FaultName& name : kFaults) {
        if (name.word == words[1]) {
            chosen = &name;
        }
    }
    if (chosen == nullptr) {
        return verb_error("'absent', 'nack' or 'ok' expected, not '" + std::string(words[1]) + "'");
    }
    const auto chip = board.i2c().device(*address);
    if (chip == nullptr) {
        return verb_error("no chip is at " + std::string(words[0]) + "; 'i2c' lists them");
    }
    auto faulty = std::dynamic_pointer_cast<FaultyI2cDevice>(chip);
    if (faulty == nullptr) {
        faulty = insert_fault(board.i2c(), *address);
    }
    faulty->absent(chosen->fault == I2cFault::kAbsent);
    faulty->not_acknowledging(chosen->fault == I2cFault::kNotAcknowledging);
    return verb_done();
}

constexpr BoardVerb kI2c[] = {
    {"i2c", "[ADDRESS absent|nack|ok]", "makes a chip fail, or work again; lists the chips", 0, 2, nullptr,
     set_fault},
};

} // namespace

constinit const std::span<const BoardVerb> kI2cVerbs = kI2c;

} // namespace sim_board
