#include "frame.h"

namespace orvan_service::hislip {
namespace {

/** Appends the last `size` bytes of the number, big-endian. */
void append_number(std::string& out, uint64_t number, size_t size)
{
    for (size_t shift = size * 8; shift > 0;) {
        shift -= 8;
        out += static_cast<char>(number >> shift);
    }
}

uint64_t number_of(std::string_view bytes)
{
    uint64_t number = 0;
    for (const char byte : bytes) {
        number = number << 8 | static_cast<uint8_t>(byte);
    }
    return number;
}

} // namespace

void append_frame(std::string& out, Header header, std::string_view payload)
{
    out.reserve(out.size() + kHeaderSize + payload.size());
    out += "HS";
    out += static_cast<char>(header.type);
    out += static_cast<char>(header.control);
    append_number(out, header.parameter, sizeof header.parameter);
    append_number(out, payload.size(), sizeof(uint64_t));
    out += payload;
}

std::optional<Header> decode_header(std::span<const char> bytes)
{
    const std::string_view text(bytes.data(), bytes.size());
    if (text.size() < kHeaderSize || !text.starts_with("HS")) {
        return std::nullopt;
    }
    return Header{static_cast<Type>(text[2]), static_cast<uint8_t>(text[3]),
                  static_cast<uint32_t>(number_of(text.substr(4, 4))), number_of(text.substr(8, 8))};
}

std::string encode_size(uint64_t size)
{
    std::string payload;
    append_number(payload, size, sizeof size);
    return payload;
}

uint64_t decode_size(std::string_view payload)
{
    return number_of(payload.substr(0, sizeof(uint64_t)));
}

} // namespace orvan_service::hislip
