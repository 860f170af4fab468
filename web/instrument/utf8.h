#ifndef ORVAN_WEB_UTF8_H
#define ORVAN_WEB_UTF8_H

#include <string>
#include <string_view>

namespace orvan_web {

/** Whether the bytes are valid UTF-8 without NUL, and so a string of JSON. */
bool is_utf8(std::string_view bytes);

/** The bytes if they are, else with each byte as the character of that code (Latin-1). */
std::string as_utf8(std::string_view bytes);

} // namespace orvan_web

#endif
