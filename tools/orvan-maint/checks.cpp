#include "checks.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <optional>

#include <arpa/inet.h>

#include "frame.h"

namespace orvan_maint {

using namespace HaldeElec::Orvan;

namespace {

// Of a row, its last byte ends the text.
constexpr size_t kLongestText = FP_MAX_DATA_LEN - 1;

// 192.168.7.0/24 to 192.168.10.0/24 lead to the instrument's own modules.
constexpr uint32_t kFirstModuleNetwork = 0xC0A807;
constexpr uint32_t kLastModuleNetwork = 0xC0A80A;

std::optional<uint32_t> number_of(const std::string& text)
{
    in_addr address{};
    if (::inet_pton(AF_INET, text.c_str(), &address) != 1) {
        return std::nullopt;
    }
    return ntohl(address.s_addr);
}

bool is_mask(uint32_t bits)
{
    return (~bits & (~bits + 1)) == 0;
}

} // namespace

std::string check_host_address(const std::string& text)
{
    const auto address = number_of(text);
    if (!address) {
        return printable(text) + " is not an IPv4 address";
    }
    const uint32_t first = *address >> 24;
    if (first == 0 || first == 127 || first >= 224) {
        return text + " is not the address of a host on a network";
    }
    if (*address >> 8 >= kFirstModuleNetwork && *address >> 8 <= kLastModuleNetwork) {
        return text + " is in a network of the instrument's own modules, 192.168.7.0 to 192.168.10.255";
    }
    return {};
}

std::string check_mask(const std::string& text)
{
    const auto mask = number_of(text);
    if (!mask || !is_mask(*mask) || *mask == 0 || (*mask & 3) != 0) {
        return printable(text) + " is not a network mask such as 255.255.255.0";
    }
    return {};
}

std::string check_gateway(const std::string& text)
{
    return text == "0.0.0.0" ? std::string() : check_host_address(text);
}

std::string check_hardware_address(const std::string& text)
{
    const auto mac = parse_mac(text);
    if (!mac) {
        return printable(text) + " is not a hardware address such as 02:00:5e:10:00:01";
    }
    if ((mac->b[0] & 1) != 0 ||
        std::all_of(mac->b, mac->b + sizeof mac->b, [](uint8_t b) { return b == 0; })) {
        return text + " is not the hardware address of one host";
    }
    return {};
}

std::string check_host_name(const std::string& text)
{
    const bool plain = std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return c < 0x80 && (std::isalnum(c) != 0 || c == '-');
    });
    if (text.empty() || !plain || text.front() == '-' || text.back() == '-') {
        return "'" + printable(text) + "' is not a host name: letters, digits and hyphens inside";
    }
    return check_text(text);
}

std::string check_on_off(const std::string& text)
{
    return text == "on" || text == "off" ? "" : "'" + printable(text) + "' is neither on nor off";
}

std::string check_port(const std::string& text)
{
    int port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    const bool whole = error == std::errc() && end == text.data() + text.size();
    return whole && port >= 1 && port <= 65535 && text.front() != '0'
               ? std::string()
               : "'" + printable(text) + "' is not a port, 1 to 65535";
}

std::string check_text(const std::string& text)
{
    if (text.empty() || text.front() == ' ' || text.back() == ' ' || printable(text) != text) {
        return "'" + printable(text) + "' is not printable ASCII text";
    }
    return text.size() > kLongestText
               ? "'" + text + "' is longer than " + std::to_string(kLongestText) + " characters"
               : std::string();
}

std::string check_network(const std::string& address, const std::string& mask, const std::string& gateway)
{
    const auto host = number_of(address);
    const auto bits = number_of(mask);
    const auto router = number_of(gateway);
    if (host && bits && ((*host & ~*bits) == 0 || (*host & ~*bits) == ~*bits)) {
        return address + " is not a host's address in a network with the mask " + mask;
    }
    if (host && bits && router && *router != 0 && ((*host ^ *router) & *bits) != 0) {
        return "the gateway " + gateway + " is not in the network of " + address + " with the mask " + mask;
    }
    return host && router && *host == *router ? "the gateway has the instrument's own address" : "";
}

} // namespace orvan_maint
