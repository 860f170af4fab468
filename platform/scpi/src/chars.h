/**
 * Character classes of IEEE 488.2 7.4, independent of the locale.
 */
#ifndef SCPI_SRC_CHARS_H
#define SCPI_SRC_CHARS_H

#include <cstddef>

namespace scpi {

/** White space (7.4.1.2): every control character and the blank; including NUL. The LF that ends a message
 *  is never inside a unit, so it needs no exception here. */
constexpr bool is_space(char c)
{
    return static_cast<unsigned char>(c) <= ' ';
}

constexpr bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

constexpr bool is_upper(char c)
{
    return c >= 'A' && c <= 'Z';
}

constexpr bool is_lower(char c)
{
    return c >= 'a' && c <= 'z';
}

constexpr bool is_alpha(char c)
{
    return is_upper(c) || is_lower(c);
}

constexpr char to_upper(char c)
{
    return is_lower(c) ? static_cast<char>(c - 'a' + 'A') : c;
}

/** First character in [p, end) that is not white space. */
constexpr const char* skip_space(const char* p, const char* end)
{
    while (p < end && is_space(*p)) {
        ++p;
    }
    return p;
}

/** True if the texts are equal ignoring the case of ASCII letters. */
constexpr bool equal_ignoring_case(const char* a, size_t a_len, const char* b, size_t b_len)
{
    if (a_len != b_len) {
        return false;
    }
    for (size_t i = 0; i < a_len; ++i) {
        if (to_upper(a[i]) != to_upper(b[i])) {
            return false;
        }
    }
    return true;
}

} // namespace scpi

#endif
