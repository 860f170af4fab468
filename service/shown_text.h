#ifndef ORVAN_SERVICE_SHOWN_TEXT_H
#define ORVAN_SERVICE_SHOWN_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace orvan_service {

/** Bytes of a message that are shown. */
inline constexpr size_t kShownBytes = 60;

/** Text from outside in printable ASCII, a '.' for any other byte. */
std::string printable(std::string_view text);

/**
 * A message in printable ASCII without its line end; "..." at its end if it is longer than `begin`.
 *
 * @param begin its first bytes @param length of the whole message
 */
std::string shown_message(std::string_view begin, size_t length);

} // namespace orvan_service

#endif
