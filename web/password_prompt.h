#ifndef ORVAN_WEB_PASSWORD_PROMPT_H
#define ORVAN_WEB_PASSWORD_PROMPT_H

#include <string>

namespace orvan_web {

/**
 * Reads a new password from standard input: a line, or from a terminal two that have to be the same, and
 * which it does not show.
 *
 * @throws std::runtime_error with a text for the user
 */
std::string read_new_password();

} // namespace orvan_web

#endif
