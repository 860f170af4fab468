#ifndef ORVAN_SERVICE_STANDARD_REPLY_H
#define ORVAN_SERVICE_STANDARD_REPLY_H

#include <string>
#include <string_view>
#include <vector>

namespace orvan_service {

/** An error of the instrument: a number and the text of its entry in an error queue (SCPI-99 21.8). */
struct StandardError {
    int number;
    std::string text; /**< without quotes */

    bool operator==(const StandardError&) const = default;
};

/** An instrument's reply taken apart: a standard client reads results, and finds errors in its queue. */
struct StandardReply {
    std::string results; /**< joined by ';', as an IEEE 488.2 response message has them; without its end */
    std::vector<StandardError> errors; /**< in the reply's order */

    bool operator==(const StandardReply&) const = default;
};

/**
 * Takes the reply to one message apart: its fields are separated by ';', then comes "+OK" CR LF. Both may be
 * missing, when the reply filled the instrument's buffer. Empty fields are dropped.
 *
 * A ';' within a string, a block (IEEE 488.2 8.7.8, 8.7.9) or the parentheses of an expression (8.7.12)
 * separates nothing. A quote or a parenthesis that does not begin an element, or is never closed, is text. A
 * block that is cut short, and not followed by "+OK", extends to the end.
 *
 * The instrument puts no separator before and after a block; here it gets them. A field that begins with
 * "-ERR" is an error:
 *
 *     -ERR -113, "Undefined header"      that number
 *     -ERR Receive timeout               a module was silent: -365
 *     -ERR Error while receiving ...     -360
 *     -ERR Unable to ...                 a module cannot be reached, or its connection times out: -241
 *     -ERR any other text                -200
 */
StandardReply take_reply_apart(std::string_view reply);

} // namespace orvan_service

#endif
