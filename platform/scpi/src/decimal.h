/**
 * Decimal numeric program data (IEEE 488.2 7.7.2) as digits and exponent, and its exact conversions.
 */
#ifndef SCPI_SRC_DECIMAL_H
#define SCPI_SRC_DECIMAL_H

#include <cstddef>
#include <cstdint>

namespace scpi {

/** Limits of 7.7.2.4.1: digits without leading zeros, and the magnitude of the written exponent. */
inline constexpr size_t kMaxDigits = 255;
inline constexpr int64_t kMaxExponent = 32000;

/** 0.d1d2d3... times ten to the power of `exponent`; d1 is not '0', and no digit at all is zero. */
struct Decimal {
    bool negative = false;
    char digits[kMaxDigits] = {};
    size_t count = 0;
    int64_t exponent = 0;
};

/** Reads a number that the lexer has accepted. 0, -123 (exponent) or -124 (digits). */
int16_t parse_decimal(const char* text, size_t len, Decimal* out);

struct Magnitude {
    uint64_t value; /**< without the sign, rounded, a half away from zero */
    bool fits;      /**< false beyond 64 bits */
    bool exact;     /**< nothing was rounded away */
};

Magnitude to_magnitude(const Decimal& decimal);

/** Correctly rounded value times ten to the power of `shift`. False when it is too large for the type;
 *  one that is too small is zero. */
bool to_floating(const Decimal& decimal, int64_t shift, float* value);
bool to_floating(const Decimal& decimal, int64_t shift, double* value);

} // namespace scpi

#endif
