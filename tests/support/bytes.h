#ifndef ORVAN_TESTS_SUPPORT_BYTES_H
#define ORVAN_TESTS_SUPPORT_BYTES_H

#include <cstdint>
#include <span>
#include <vector>

namespace orvan_test {

using Bytes = std::vector<uint8_t>;

/** A copy, to be compared and shown. */
inline Bytes bytes_of(std::span<const uint8_t> bytes)
{
    return {bytes.begin(), bytes.end()};
}

} // namespace orvan_test

#endif
