/**
 * Texts in fields of fixed size, possibly unterminated, as stored data can be damaged.
 */
#ifndef ORVAN_SDK_LXI_SETTINGS_TEXT_H
#define ORVAN_SDK_LXI_SETTINGS_TEXT_H

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

namespace HaldeElec::Orvan {

/** The text of a field, ending at the latest with the field. */
template <size_t size>
std::string text_of(const char (&field)[size])
{
    return {field, strnlen(field, size)};
}

/** strncpy: as much as fits, zero-padded, no terminator if it fills the field. */
template <size_t size>
void put_text(char (&field)[size], std::string_view text)
{
    const size_t length = std::min(text.size(), size);
    std::memcpy(field, text.data(), length);
    std::memset(field + length, 0, size - length);
}

} // namespace HaldeElec::Orvan

#endif
