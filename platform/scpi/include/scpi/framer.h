/**
 * Finds the end of a program message in a stream of bytes (IEEE 488.2 7.5).
 *
 * A program message ends with LF. Only the bytes of a definite length block ("#<n><n digits><bytes>",
 * 7.7.6) may hold a LF that does not end it; an indefinite block ("#0") ends at the LF. A LF in an open
 * string ends the message too: on a socket the LF is the END message, and a client that forgot a quote
 * gets -151 instead of silence. Quotes matter all the same: a '#' inside a string opens no block.
 * A '#' opens a block only where a program data element may start, with a digit behind it: behind the
 * white space that follows a header, or behind a ','; never in an expression.
 *
 * The state is kept between calls, so each byte is looked at once however the stream is cut, and the
 * bytes of a block are stepped over without being looked at.
 */
#ifndef SCPI_FRAMER_H
#define SCPI_FRAMER_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Prepares for the first byte of a message. */
void SCPI_FramerReset(scpi_framer_t* framer);

/**
 * Looks at `len` bytes that follow those seen before.
 *
 * @return the number of bytes up to and including the LF that ends the message, and the framer is
 *         ready for the next message; 0 when all `len` bytes belong to a message that goes on.
 */
size_t SCPI_FramerScan(scpi_framer_t* framer, const char* data, size_t len);

#ifdef __cplusplus
}
#endif

#endif
