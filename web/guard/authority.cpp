#include "guard/authority.h"

#include <algorithm>
#include <charconv>

#include <arpa/inet.h>

namespace orvan_web {
namespace {

constexpr size_t kLongestName = 253;

bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

// Reads ":80", ":" and nothing.
bool read_port(std::string_view text, std::optional<uint16_t>& port)
{
    if (text.empty() || text == ":") {
        return true;
    }
    uint16_t number = 0;
    const auto [end, error] = std::from_chars(text.data() + 1, text.data() + text.size(), number);
    port = number;
    return text.front() == ':' && is_digit(text[1]) && error == std::errc() &&
           end == text.data() + text.size();
}

std::optional<std::string> canonical_ipv6(std::string_view text)
{
    in6_addr address{};
    char shortest[INET6_ADDRSTRLEN];
    // A scope has a meaning on one machine only.
    const std::string host(text.substr(0, text.find('%')));
    if (::inet_pton(AF_INET6, host.c_str(), &address) != 1) {
        return std::nullopt;
    }
    return ::inet_ntop(AF_INET6, &address, shortest, sizeof shortest);
}

std::optional<std::string> canonical_name(std::string_view text)
{
    std::string name(text);
    for (char& c : name) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
        if (!is_digit(c) && !(c >= 'a' && c <= 'z') && c != '-' && c != '.' && c != '_') {
            return std::nullopt;
        }
    }
    if (name.ends_with('.')) {
        name.pop_back();
    }
    return name.empty() || name.size() > kLongestName ? std::nullopt : std::optional(name);
}

} // namespace

std::optional<Authority> parse_authority(std::string_view text)
{
    const bool is_v6 = text.starts_with('[');
    const size_t end = is_v6 ? text.find(']') : std::min(text.find(':'), text.size());
    if (end == std::string_view::npos) {
        return std::nullopt;
    }
    const auto host = is_v6 ? canonical_ipv6(text.substr(1, end - 1)) : canonical_name(text.substr(0, end));
    std::optional<uint16_t> port;
    if (!host || !read_port(text.substr(is_v6 ? end + 1 : end), port)) {
        return std::nullopt;
    }
    return Authority{*host, port};
}

std::optional<Origin> parse_origin(std::string_view text)
{
    for (const std::string_view scheme : {"http", "https"}) {
        const std::string beginning = std::string(scheme) + "://";
        if (text.starts_with(beginning)) {
            const auto authority = parse_authority(text.substr(beginning.size()));
            return authority ? std::optional(Origin{std::string(scheme), *authority}) : std::nullopt;
        }
    }
    return std::nullopt;
}

bool same_origin(const Origin& origin, const Authority& host)
{
    const uint16_t usual = origin.scheme == "https" ? 443 : 80;
    return origin.authority.host == host.host &&
           origin.authority.port.value_or(usual) == host.port.value_or(usual);
}

} // namespace orvan_web
