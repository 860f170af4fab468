/**
 * Syntax of a command program header (IEEE 488.2 7.6.1, SCPI-99 6.2.1).
 */
#ifndef SCPI_SRC_HEADER_H
#define SCPI_SRC_HEADER_H

#include <cstddef>
#include <cstdint>

namespace scpi {

struct HeaderScan {
    const char* end; /**< after the header, including its "?" */
    size_t path_len; /**< from the start of the header through its last ':'; 0 if none */
    bool common;     /**< "*IDN?" */
    bool absolute;   /**< starts with ':' */
    bool overlong;   /**< a mnemonic has more than 12 characters */
    int16_t fault;   /**< 0, or why this is not a header: -101, -102, -110, -111 */
};

/**
 * Scans the header at the start of a unit of at least one byte that does not start with white space.
 *
 * -101 a character not allowed in a header; -102 program data where the header should be;
 * -110 an empty mnemonic, or one that does not start with a letter; -111 no white space after the header.
 */
HeaderScan scan_header(const char* begin, const char* end);

} // namespace scpi

#endif
