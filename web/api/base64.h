#ifndef ORVAN_WEB_BASE64_H
#define ORVAN_WEB_BASE64_H

#include <string>
#include <string_view>

namespace orvan_web {

/** The bytes in base64 (RFC 4648 4), with padding. */
std::string base64(std::string_view bytes);

} // namespace orvan_web

#endif
