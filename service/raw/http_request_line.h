#ifndef ORVAN_SERVICE_HTTP_REQUEST_LINE_H
#define ORVAN_SERVICE_HTTP_REQUEST_LINE_H

#include <cstdint>
#include <span>

namespace orvan_service {

/**
 * Says whether a connection begins with an HTTP request line (RFC 9112 3): a method, a target and HTTP/x.y,
 * with one space between them, as browsers send it. Any web page can have a browser send one to the
 * instrument, and program messages after it.
 *
 * No program message is one: a parameter does not begin as a target does and end in a version. A target never
 * begins with '#', so the bytes of a block are not taken for one.
 */
class HttpRequestLine {
public:
    enum class Verdict {
        kOpen, /**< the first line is not whole yet, and may be one */
        kYes,
        kNo
    };

    /** Takes the next bytes of the connection. Does nothing once it has said yes or no. */
    Verdict feed(std::span<const char> bytes);

private:
    enum class State : uint8_t { kMethod, kTargetBegin, kTarget, kVersion, kLineFeed, kIs, kIsNot };

    State next(char c);

    State m_state = State::kMethod;
    uint8_t m_seen = 0; // of the method, 1 for any; of the version
};

} // namespace orvan_service

#endif
