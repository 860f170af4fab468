#include "frame.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include <arpa/inet.h>
#include <endian.h>

namespace orvan_maint {

using namespace HaldeElec::Orvan;

HALDE_PACKET make_frame(std::string_view opcode, const hwaddr_t& mac)
{
    HALDE_PACKET frame{};
    std::memcpy(frame.opcode, opcode.data(), std::min(opcode.size(), kOpcodeLength));
    std::memcpy(frame.mac, mac.b, sizeof frame.mac);
    return frame;
}

void put_block(HALDE_PACKET& frame, uint16_t block)
{
    frame.block = htons(block);
}

void put_size(HALDE_PACKET& frame, uint16_t size)
{
    frame.size = htons(size);
}

void put_info(HALDE_PACKET& frame, uint32_t info)
{
    frame.info = htole32(info);
}

uint16_t block_of(const HALDE_PACKET& frame)
{
    return ntohs(frame.block);
}

uint16_t size_of(const HALDE_PACKET& frame)
{
    return ntohs(frame.size);
}

uint16_t state_of(const HALDE_PACKET& frame)
{
    return frame.stateMode;
}

uint32_t info_of(const HALDE_PACKET& frame)
{
    return le32toh(frame.info);
}

hwaddr_t mac_of(const HALDE_PACKET& frame)
{
    hwaddr_t mac;
    std::memcpy(mac.b, frame.mac, sizeof mac.b);
    return mac;
}

bool has_opcode(const HALDE_PACKET& frame, std::string_view opcode)
{
    return std::string_view(frame.opcode, sizeof frame.opcode) == opcode;
}

std::span<const uint8_t> wire_bytes(const HALDE_PACKET& frame, size_t data_length)
{
    return {reinterpret_cast<const uint8_t*>(&frame), FRMHEADERLEN + std::min(data_length, FRMDATALEN)};
}

std::string mac_text(const hwaddr_t& mac)
{
    char text[18];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac.b[0], mac.b[1], mac.b[2], mac.b[3],
                  mac.b[4], mac.b[5]);
    return text;
}

std::optional<hwaddr_t> parse_mac(const std::string& text)
{
    constexpr size_t kLength = 17;
    constexpr std::string_view kDigits = "0123456789abcdefABCDEF";
    if (text.size() != kLength || (text[2] != ':' && text[2] != '-')) {
        return std::nullopt;
    }
    hwaddr_t mac;
    for (size_t i = 0; i < kLength; ++i) {
        const bool is_digit = kDigits.find(text[i]) != std::string_view::npos;
        if (i % 3 == 2 ? text[i] != text[2] : !is_digit) {
            return std::nullopt;
        }
        if (i % 3 == 0) {
            mac.b[i / 3] = static_cast<uint8_t>(std::stoi(text.substr(i, 1), nullptr, 16) << 4);
        } else if (i % 3 == 1) {
            mac.b[i / 3] = static_cast<uint8_t>(mac.b[i / 3] | std::stoi(text.substr(i, 1), nullptr, 16));
        }
    }
    return mac;
}

std::string printable(std::string_view text)
{
    std::string shown;
    for (const char c : text) {
        if (c >= ' ' && c <= '~') {
            shown += c;
            continue;
        }
        char escape[5];
        std::snprintf(escape, sizeof escape, "\\x%02X", static_cast<unsigned>(static_cast<uint8_t>(c)));
        shown += escape;
    }
    return shown;
}

} // namespace orvan_maint
