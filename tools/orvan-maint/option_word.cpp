#include "option_word.h"

#include <algorithm>
#include <cstring>

#include <strings.h>

#include "failure.h"

namespace orvan_maint {

using namespace HaldeElec::Orvan;

namespace {

constexpr int kWordBits = 16;

uint8_t mirrored(uint8_t byte)
{
    unsigned mirror = 0;
    for (int bit = 0; bit < 8; ++bit) {
        mirror = mirror << 1 | (byte >> bit & 1U);
    }
    return static_cast<uint8_t>(mirror);
}

bool is_in(const std::vector<std::string>& words, const std::string& symbol)
{
    return std::any_of(words.begin(), words.end(), [&symbol](const std::string& word) {
        return ::strcasecmp(word.c_str(), symbol.c_str()) == 0;
    });
}

std::string changeable_words(const std::vector<OptionRow>& rows)
{
    std::string words;
    for (const OptionRow& row : rows) {
        if (row.modify && !row.symbol.empty()) {
            words += " " + row.symbol;
        }
    }
    return words.empty() ? " none" : words;
}

} // namespace

std::vector<OptionRow> read_options(const HALDE_PACKET& frame, size_t length)
{
    const size_t size = size_of(frame);
    if (size == 0 || size > FRMDATALEN || size % sizeof(optEntry_t) != 0 || length < FRMHEADERLEN + size) {
        throw Failure(kExitRefused, "the instrument sends no table of options");
    }
    std::vector<OptionRow> rows;
    for (size_t at = 0; at < size; at += sizeof(optEntry_t)) {
        optEntry_t entry;
        std::memcpy(&entry, frame.data + at, sizeof entry);
        if (entry.bitNum == 0) {
            continue;
        }
        if (entry.bitStart + entry.bitNum > kWordBits || entry.defaults >> entry.bitNum != 0) {
            throw Failure(kExitRefused, "the instrument's table of options does not fit a word of 16 bits");
        }
        rows.push_back({entry.bitStart, entry.bitNum, entry.modify != 0, entry.defaults,
                        printable({entry.symbol, ::strnlen(entry.symbol, sizeof entry.symbol)})});
    }
    return rows;
}

uint16_t option_word(const std::vector<OptionRow>& rows)
{
    unsigned word = 0;
    for (const OptionRow& row : rows) {
        word |= static_cast<unsigned>(row.value) << row.bit_start;
    }
    return static_cast<uint16_t>(word);
}

std::vector<OptionRow> changed_options(std::vector<OptionRow> rows, const std::vector<std::string>& set,
                                       const std::vector<std::string>& clear)
{
    for (const std::vector<std::string>* const words : {&set, &clear}) {
        for (const std::string& word : *words) {
            const auto row = std::find_if(rows.begin(), rows.end(), [&word](const OptionRow& known) {
                return !known.symbol.empty() && ::strcasecmp(known.symbol.c_str(), word.c_str()) == 0;
            });
            if (row == rows.end()) {
                throw Failure(kExitBadOptions, "the instrument has no option " + printable(word) +
                                                   "; there are:" + changeable_words(rows));
            }
            if (!row->modify) {
                throw Failure(kExitBadOptions, "option " + row->symbol +
                                                   " cannot be changed; there are:" + changeable_words(rows));
            }
            if (is_in(set, word) && is_in(clear, word)) {
                throw Failure(kExitBadOptions, "option " + row->symbol + " is to be set and to be cleared");
            }
            row->value = words == &set ? (1 << row->bit_num) - 1 : 0;
        }
    }
    return rows;
}

std::string wire_options(uint16_t word)
{
    const unsigned low = mirrored(static_cast<uint8_t>(word & 0xF0)) | (word & 0x0FU) << 4;
    const uint8_t high = mirrored(static_cast<uint8_t>(word >> 8));
    return {static_cast<char>(low), static_cast<char>(high)};
}

} // namespace orvan_maint
