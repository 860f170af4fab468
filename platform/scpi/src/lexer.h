/**
 * Scans one program data element (IEEE 488.2 7.7).
 */
#ifndef SCPI_SRC_LEXER_H
#define SCPI_SRC_LEXER_H

#include <cstdint>

#include "scpi/types.h"

namespace scpi {

/**
 * Scans the element that starts at `p`, without leading white space, and never reads at or past `end`.
 *
 * An element ends before ',', ';', white space or `end`; these characters may also occur inside a string, a
 * block or an expression. An indefinite block ("#0") extends to `end`.
 *
 * @param out  the element; on an error its type is SCPI_TOKEN_INVALID and it is otherwise empty
 * @param next the position after the element; on an error the offending character
 * @return 0, or the error number: -101 a character that cannot start an element; -102 an empty element;
 *         -120, -121 numbers; -141 character data; -151 strings; -161 blocks; -171 expressions
 */
int16_t lex_element(const char* p, const char* end, scpi_parameter_t* out, const char** next);

} // namespace scpi

#endif
