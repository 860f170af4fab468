#ifndef SCPI_SRC_ERROR_TABLE_H
#define SCPI_SRC_ERROR_TABLE_H

#include <cstddef>
#include <cstdint>

namespace scpi {

struct ErrorText {
    int16_t number;
    const char* text;
};

/** The standard texts, from 0 down (SCPI-99 21.8.8 to 21.8.16). */
extern const ErrorText* const error_texts_begin;
extern const ErrorText* const error_texts_end;

} // namespace scpi

#endif
