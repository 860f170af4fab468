/**
 * Helpers shared by the parameter readers.
 */
#ifndef SCPI_SRC_PARAMETER_SUPPORT_H
#define SCPI_SRC_PARAMETER_SUPPORT_H

#include "scpi/error.h"
#include "scpi/types.h"

namespace scpi {

inline bool fail(scpi_t* context, int_fast16_t error)
{
    SCPI_ErrorPush(context, error);
    return false;
}

/** The error number for an element of this kind that is not allowed. */
int16_t not_allowed_error(scpi_token_type_t type);

/** First entry of the list that the mnemonic matches, null if none does. */
const scpi_choice_def_t* find_choice(const scpi_choice_def_t* options, const char* text, size_t len);

} // namespace scpi

#endif
