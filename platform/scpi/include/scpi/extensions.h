/**
 * What this library offers beyond the open parser library whose interface it shares. Code that uses nothing
 * from this header can be built with either.
 */
#ifndef SCPI_EXTENSIONS_H
#define SCPI_EXTENSIONS_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The parser */

/** Frees the index and the texts in the error queue. The context must be built again before use. */
void SCPI_Deinit(scpi_t* context);

/** First row of the context's table that matches the header, null when none does.
 *  Costs time in the header's length, not in the table's. */
const scpi_command_t* SCPI_FindCommand(const scpi_t* context, const char* header, size_t len);

/* The error queue */

/** Puts the text, measured as by SCPI_ErrorPushEx, on the newest entry of the queue in place of the one that
 *  it had; queues nothing. Does nothing on an empty queue, nor when the newest entry is the overflow mark, as
 *  the error that the text belongs to is then not in the queue. */
void SCPI_ErrorUpdateEx(scpi_t* context, const char* info, size_t info_len);

/** Frees the text of an entry that SCPI_ErrorPop gave. */
void SCPI_ErrorFree(scpi_error_t* error);

/* Units */

/** The entry with that name in any case; null when there is none, or when `units` is null. */
const scpi_unit_def_t* SCPI_FindUnit(const scpi_unit_def_t* units, const char* name, size_t len);

/*
 * The framer finds the end of a program message in a stream of bytes (IEEE 488.2 7.5).
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
