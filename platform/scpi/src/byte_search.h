/**
 * Search for the first of a few characters in a long text.
 */
#ifndef SCPI_SRC_BYTE_SEARCH_H
#define SCPI_SRC_BYTE_SEARCH_H

#include <cstddef>
#include <cstdint>

namespace scpi {

/** Non-zero if one of the kStride bytes at `p` is `stop`. A fixed count without early exit, one character at
 *  a time, lets the compiler use vector compares. */
template <std::ptrdiff_t kStride>
inline unsigned stride_holds(const char* p, char stop)
{
    uint8_t hit = 0;
    for (std::ptrdiff_t i = 0; i < kStride; ++i) {
        hit |= static_cast<uint8_t>(p[i] == stop ? 0xff : 0);
    }
    return hit;
}

/** First position in [p, end) that holds one of the characters, or `end`. */
template <char... kStops>
const char* find_any(const char* p, const char* end)
{
    constexpr std::ptrdiff_t kStride = 64;
    while (end - p >= kStride && (stride_holds<kStride>(p, kStops) | ...) == 0) {
        p += kStride;
    }
    while (p < end && (static_cast<unsigned>(*p == kStops) | ...) == 0) {
        ++p;
    }
    return p;
}

} // namespace scpi

#endif
