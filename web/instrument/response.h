/**
 * What the service's Unix socket answers: one line to each message.
 */
#ifndef ORVAN_WEB_RESPONSE_H
#define ORVAN_WEB_RESPONSE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace orvan_web {

/** An entry of an error queue (SCPI-99 21.8). */
struct ScpiError {
    int number;
    std::string text;

    bool operator==(const ScpiError&) const = default;
};

/**
 * Finds the end of a response in a stream of bytes: a LF that is not within a definite length block (IEEE
 * 488.2 8.7.9). The framer of the parser library finds the ends of program messages, in which a block does
 * not begin a line. Examines each byte once, however the stream is split.
 */
class ResponseFramer {
public:
    /** @return the number of bytes up to and including the LF that ends the response, and the next byte
     *  begins another one; 0 if it continues after all of `bytes` */
    size_t scan(std::string_view bytes);

    /** For one byte of a response: moves past it. */
    void step(char c);
    /** Whether the next byte is within a string or a block, where it separates nothing. */
    bool literal() const { return m_state == State::kString || m_state == State::kBlock; }

private:
    enum class State : uint8_t { kStart, kInside, kString, kHash, kLength, kBlock };

    State m_state = State::kStart;
    char m_quote = 0;
    size_t m_digits = 0; // of a block's length that are missing
    size_t m_length = 0; // of a block, as far as it is known; then its bytes that are missing
};

/** The fields of a response, which ';' separates; one within a string or a block separates nothing. */
std::vector<std::string> split_fields(std::string_view response);

/** The errors of a response to ":SYSTem:ERRor:SESSion?", `-113,"Undefined header",-222,"Data out of range"`.
 *  Those numbered 0, which stand for none, are left out. */
std::vector<ScpiError> read_errors(std::string_view response);

} // namespace orvan_web

#endif
