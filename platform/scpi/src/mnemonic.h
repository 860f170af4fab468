/**
 * The characters of a program mnemonic (IEEE 488.2 7.6.1.2) and their case folding.
 */
#ifndef SCPI_SRC_MNEMONIC_H
#define SCPI_SRC_MNEMONIC_H

#include <array>

#include "chars.h"

namespace scpi {

/** Longest mnemonic that the standard allows. */
inline constexpr std::ptrdiff_t kLongestMnemonic = 12;

/** Upper-case form of each mnemonic character, 0 for every other byte. */
inline constexpr std::array<char, 256> kMnemonicFold = [] {
    std::array<char, 256> fold{};
    for (unsigned i = 0; i < fold.size(); ++i) {
        const char c = static_cast<char>(i);
        if (is_alpha(c) || is_digit(c) || c == '_') {
            fold[i] = to_upper(c);
        }
    }
    return fold;
}();

constexpr char fold_mnemonic(char c)
{
    return kMnemonicFold[static_cast<unsigned char>(c)];
}

/** First character in [p, end) that cannot be part of a mnemonic. */
constexpr const char* skip_mnemonic(const char* p, const char* end)
{
    while (p < end && fold_mnemonic(*p) != 0) {
        ++p;
    }
    return p;
}

} // namespace scpi

#endif
