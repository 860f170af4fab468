#include "http_request_line.h"

#include <string_view>

namespace orvan_service {
namespace {

constexpr std::string_view kVersion = "HTTP/0.0"; // 0: any digit

bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

bool is_alphanumeric(char c)
{
    return is_digit(c) || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// A character of a token (RFC 9110 5.6.2).
bool is_method(char c)
{
    return is_alphanumeric(c) ||
           (c != '\0' && std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos);
}

// A path, "*", an URL, or a host, which may be an IPv6 address.
bool begins_target(char c)
{
    return is_alphanumeric(c) || c == '/' || c == '*' || c == '[';
}

// Non-ASCII too: not every client encodes it.
bool is_target(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte > ' ' && byte != 0x7f;
}

} // namespace

HttpRequestLine::Verdict HttpRequestLine::feed(std::span<const char> bytes)
{
    for (const char c : bytes) {
        if (m_state == State::kIs || m_state == State::kIsNot) {
            break;
        }
        m_state = next(c);
    }
    return m_state == State::kIs ? Verdict::kYes : m_state == State::kIsNot ? Verdict::kNo : Verdict::kOpen;
}

HttpRequestLine::State HttpRequestLine::next(char c)
{
    switch (m_state) {
    case State::kMethod:
        if (is_method(c)) {
            m_seen = 1;
            return State::kMethod;
        }
        return c == ' ' && m_seen != 0 ? State::kTargetBegin : State::kIsNot;
    case State::kTargetBegin:
        return begins_target(c) ? State::kTarget : State::kIsNot;
    case State::kTarget:
        m_seen = 0;
        return is_target(c) ? State::kTarget : c == ' ' ? State::kVersion : State::kIsNot;
    case State::kVersion: {
        const char expected = kVersion[m_seen];
        if (expected == '0' ? !is_digit(c) : c != expected) {
            return State::kIsNot;
        }
        return ++m_seen == kVersion.size() ? State::kLineFeed : State::kVersion;
    }
    case State::kLineFeed:
        // A single CR may precede it.
        if (c == '\r' && m_seen == kVersion.size()) {
            ++m_seen;
            return State::kLineFeed;
        }
        return c == '\n' ? State::kIs : State::kIsNot;
    case State::kIs:
    case State::kIsNot:
        break;
    }
    return m_state;
}

} // namespace orvan_service
