/**
 * Scans one program data element (IEEE 488.2 7.7).
 */
#ifndef SCPI_SRC_LEXER_H
#define SCPI_SRC_LEXER_H

#include <cstdint>

#include "scpi/types.h"

/**
 * Scans the element that starts at `p`, with no white space ahead of it, and looks at nothing from `end` on.
 *
 * An element ends ahead of ',', ';', white space or `end`, each of which may also stand inside a string, a
 * block or an expression. An indefinite block ("#0") runs to `end`.
 *
 * @param out  the element; on an error its type is SCPI_TOKEN_INVALID and it is otherwise empty
 * @param next the position behind the element; on an error the character that could not stand there
 * @return 0, or the error number: -101 a character that can start no element; -102 an empty element;
 *         -120, -121 numbers; -141 character data; -151 strings; -161 blocks; -171 expressions
 */
int16_t scpi_lex_element_error(const char* p, const char* end, scpi_parameter_t* out, const char** next);

/** The same for callers to whom the number of the error means nothing: false on an error. */
inline bool scpi_lex_element(const char* p, const char* end, scpi_parameter_t* out, const char** next)
{
    return scpi_lex_element_error(p, end, out, next) == 0;
}

#endif
