/**
 * Passwords and tokens: made, hashed, compared.
 */
#ifndef ORVAN_WEB_SECRETS_H
#define ORVAN_WEB_SECRETS_H

#include <string>
#include <string_view>

namespace orvan_web {

/** A new token: 64 hexadecimal digits of 256 random bits.
 *  @throws std::system_error */
std::string new_token();

/** SHA-256 in 64 hexadecimal digits. Enough for tokens, which nobody can guess. */
std::string token_hash(std::string_view token);

/** Whether two texts are equal; takes as long for all of the same length. */
bool equal_secrets(std::string_view a, std::string_view b);

/** The hash of a password: yescrypt, in the form of crypt(5). Takes about 0.1 s.
 *  @throws std::system_error */
std::string password_hash(const std::string& password);

/** Whether the password has this hash. Takes as long. Any thread. */
bool password_matches(const std::string& password, const std::string& hash);

} // namespace orvan_web

#endif
