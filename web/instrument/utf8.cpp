#include "utf8.h"

#include <cstdint>

namespace orvan_web {

bool is_utf8(std::string_view bytes)
{
    // The least code of a sequence with this number of bytes after the first: a longer form is invalid.
    constexpr uint32_t kLeast[] = {1, 0x80, 0x800, 0x10000};
    for (size_t i = 0; i < bytes.size(); ++i) {
        const auto first = static_cast<uint8_t>(bytes[i]);
        const size_t more = first < 0x80 ? 0 : first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : 1;
        if ((first >= 0x80 && first < 0xC2) || first > 0xF4 || bytes.size() - i <= more) {
            return false;
        }
        uint32_t code = more == 0 ? first : first & (0x3FU >> more);
        for (size_t k = 1; k <= more; ++k) {
            const auto byte = static_cast<uint8_t>(bytes[i + k]);
            if ((byte & 0xC0) != 0x80) {
                return false;
            }
            code = code << 6 | (byte & 0x3F);
        }
        if (code < kLeast[more] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
            return false;
        }
        i += more;
    }
    return true;
}

std::string as_utf8(std::string_view bytes)
{
    if (is_utf8(bytes)) {
        return std::string(bytes);
    }
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<uint8_t>(c);
        if (byte >= 0x80) {
            text += static_cast<char>(0xC0 | byte >> 6);
            text += static_cast<char>(0x80 | (byte & 0x3F));
        } else if (byte != 0) {
            text += c;
        }
    }
    return text;
}

} // namespace orvan_web
