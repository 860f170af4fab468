#ifndef ORVAN_SERVICE_HTTP_REQUEST_LINE_H
#define ORVAN_SERVICE_HTTP_REQUEST_LINE_H

#include <cstdint>
#include <span>

namespace orvan_service {

/**
 * Detects whether a connection begins with an HTTP request line (RFC 9112 3): a method, a target and
 * HTTP/x.y, separated by single spaces, as browsers send it. Any web page can make a browser send one to the
 * instrument, followed by program messages.
 *
 * No program message looks like one: a parameter does not begin like a target and end in a version. A target
 * never begins with '#', so block data is not mistaken for one.
 */
class HttpRequestLine {
public:
    enum class Verdict {
        kOpen, /**< the first line is incomplete and may still be one */
        kYes,
        kNo
    };

    /** Takes the next bytes of the connection. Does nothing once the verdict is final. */
    Verdict feed(std::span<const char> bytes);

private:
    enum class State : uint8_t { kMethod, kTargetBegin, kTarget, kVersion, kLineFeed, kIs, kIsNot };

    State next(char c);

    State m_state = State::kMethod;
    uint8_t m_seen = 0; // of the method, 1 for any; of the version
};

} // namespace orvan_service

#endif
