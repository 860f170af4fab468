/**
 * Syntax of a command program header (IEEE 488.2 7.6.1, SCPI-99 6.2.1).
 */
#ifndef SCPI_SRC_HEADER_H
#define SCPI_SRC_HEADER_H

#include <cstddef>
#include <cstdint>

namespace scpi {

struct HeaderScan {
    const char* end; /**< behind the header, its "?" included */
    size_t path_len; /**< from the start of the header to behind its last ':'; 0 without one */
    bool common;     /**< "*IDN?" */
    bool absolute;   /**< starts with ':' */
    bool overlong;   /**< a mnemonic has more than 12 characters */
    int16_t fault;   /**< 0, or why this is no header: -101, -102, -110, -111 */
};

/**
 * Scans the header at the start of a unit that holds at least one byte and starts with no white space.
 *
 * -101 a character that has no place in a header; -102 program data where the header should be;
 * -110 an empty mnemonic, or one that starts with no letter; -111 no white space behind the header.
 */
HeaderScan scan_header(const char* begin, const char* end);

} // namespace scpi

#endif
