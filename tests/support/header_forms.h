/**
 * The spellings of a header (SCPI-99 6.2.1).
 */
#ifndef ORVAN_TESTS_SUPPORT_HEADER_FORMS_H
#define ORVAN_TESTS_SUPPORT_HEADER_FORMS_H

#include <string>
#include <string_view>
#include <vector>

namespace orvan_test {

/**
 * The headers that a pattern of a command table matches: with and without each optional node, the nodes
 * short, long, or long and short in turns; the long ones in small letters as well, and the short ones without
 * their first colon, which is optional in the first header of a line.
 */
std::vector<std::string> header_forms(std::string_view pattern);

/** Its nodes short, the optional ones left out. */
std::string short_header(std::string_view pattern);

} // namespace orvan_test

#endif
