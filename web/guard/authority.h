#ifndef ORVAN_WEB_AUTHORITY_H
#define ORVAN_WEB_AUTHORITY_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace orvan_web {

/** A host and port as in a Host header (RFC 9110, 7.2). */
struct Authority {
    std::string host; /**< in small letters, without a dot at its end; an IPv6 address in its shortest form */
    std::optional<uint16_t> port;

    bool operator==(const Authority&) const = default;
};

/** Reads "name", "10.0.0.2:8080" or "[fe80::1]:80"; empty for anything else. */
std::optional<Authority> parse_authority(std::string_view text);

/** An origin as in an Origin header (RFC 6454, 7). */
struct Origin {
    std::string scheme; /**< "http" or "https" */
    Authority authority;
};

/** Reads "http://10.0.0.2:8080"; empty for "null" and anything else. */
std::optional<Origin> parse_origin(std::string_view text);

/** Whether a page of this origin was served under this host. A proxy in between may speak another scheme. */
bool same_origin(const Origin& origin, const Authority& host);

} // namespace orvan_web

#endif
