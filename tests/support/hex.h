#ifndef ORVAN_TESTS_SUPPORT_HEX_H
#define ORVAN_TESTS_SUPPORT_HEX_H

#include <string>

namespace orvan_test {

/** As orvan-datagram takes a frame. */
inline std::string hex_of(const std::string& bytes)
{
    constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    for (const char byte : bytes) {
        hex += kDigits[static_cast<unsigned char>(byte) >> 4];
        hex += kDigits[byte & 0xF];
    }
    return hex;
}

/** From pairs of digits, in either case; throws std::invalid_argument on anything else. */
inline std::string from_hex(const std::string& hex)
{
    std::string bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

} // namespace orvan_test

#endif
