#include "decimal.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include "chars.h"
#include "scpi/error.h"

namespace scpi {

namespace {

/** False beyond kMaxExponent. */
bool parse_exponent(const char* p, const char* end, int64_t* exponent)
{
    p = skip_space(p, end);
    const bool negative = p < end && *p == '-';
    if (p < end && (*p == '-' || *p == '+')) {
        ++p;
    }
    int64_t value = 0;
    for (; p < end; ++p) {
        value = value * 10 + (*p - '0');
        if (value > kMaxExponent) {
            return false;
        }
    }
    *exponent = negative ? -value : value;
    return true;
}

template <typename T>
bool to_floating_type(const Decimal& decimal, int64_t shift, T* value)
{
    char text[1 + kMaxDigits + 1 + std::numeric_limits<int64_t>::digits10 + 2];
    char* p = text;
    if (decimal.negative) {
        *p++ = '-';
    }
    p = std::copy_n(decimal.digits, decimal.count, p);
    if (decimal.count == 0) {
        *p++ = '0';
    }
    *p++ = 'e';
    const int64_t exponent = decimal.exponent + shift;
    const int64_t last_digit = decimal.count == 0 ? 0 : exponent - static_cast<int64_t>(decimal.count);
    p = std::to_chars(p, text + sizeof text, last_digit).ptr;

    T result = 0;
    if (std::from_chars(text, p, result).ec == std::errc()) {
        *value = result;
        return true;
    }
    *value = 0;
    return exponent <= 0;
}

} // namespace

int16_t parse_decimal(const char* text, size_t len, Decimal* out)
{
    *out = {};
    const char* p = text;
    const char* const end = text + len;
    out->negative = *p == '-';
    if (*p == '-' || *p == '+') {
        ++p;
    }

    bool fraction = false;
    for (; p < end && (is_digit(*p) || *p == '.'); ++p) {
        if (*p == '.') {
            fraction = true;
            continue;
        }
        if (out->count == 0 && *p == '0') {
            out->exponent -= fraction ? 1 : 0;
            continue;
        }
        if (out->count == kMaxDigits) {
            return SCPI_ERROR_TOO_MANY_DIGITS;
        }
        out->digits[out->count++] = *p;
        out->exponent += fraction ? 0 : 1;
    }

    p = skip_space(p, end);
    if (p == end) {
        return 0;
    }
    int64_t exponent = 0;
    if (!parse_exponent(p + 1, end, &exponent)) {
        return SCPI_ERROR_EXPONENT_TOO_LARGE;
    }
    out->exponent += exponent;
    return 0;
}

Magnitude to_magnitude(const Decimal& decimal)
{
    if (decimal.count == 0) {
        return {0, true, true};
    }
    if (decimal.exponent < 0) {
        return {0, true, false};
    }
    constexpr uint64_t kMax = std::numeric_limits<uint64_t>::max();
    if (decimal.exponent > std::numeric_limits<uint64_t>::digits10 + 1) {
        return {kMax, false, false};
    }

    const size_t integer_digits = static_cast<size_t>(decimal.exponent);
    uint64_t value = 0;
    for (size_t i = 0; i < integer_digits; ++i) {
        const uint64_t digit = i < decimal.count ? static_cast<uint64_t>(decimal.digits[i] - '0') : 0;
        if (value > (kMax - digit) / 10) {
            return {kMax, false, false};
        }
        value = value * 10 + digit;
    }
    if (integer_digits >= decimal.count) {
        return {value, true, true};
    }
    if (decimal.digits[integer_digits] >= '5') {
        if (value == kMax) {
            return {kMax, false, false};
        }
        ++value;
    }
    const bool exact = std::all_of(decimal.digits + integer_digits, decimal.digits + decimal.count,
                                   [](char c) { return c == '0'; });
    return {value, true, exact};
}

bool to_floating(const Decimal& decimal, int64_t shift, float* value)
{
    return to_floating_type(decimal, shift, value);
}

bool to_floating(const Decimal& decimal, int64_t shift, double* value)
{
    return to_floating_type(decimal, shift, value);
}

} // namespace scpi
