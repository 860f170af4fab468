/**
 * Extensions to the interface of the open parser library that this library shares. Code that does not use
 * this header can be built with either.
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

/** First row of the context's table that matches the header, null if none does.
 *  Takes time proportional to the header's length, independent of the table's. */
const scpi_command_t* SCPI_FindCommand(const scpi_t* context, const char* header, size_t len);

/* The error queue */

/** Replaces the text of the newest entry of the queue, with the length rules of SCPI_ErrorPushEx; queues
 *  nothing. Does nothing if the queue is empty or the newest entry is the overflow mark, as the error that
 *  the text belongs to is then not in the queue. */
void SCPI_ErrorUpdateEx(scpi_t* context, const char* info, size_t info_len);

/** Frees the text of an entry returned by SCPI_ErrorPop. */
void SCPI_ErrorFree(scpi_error_t* error);

/* Units */

/** The entry with that name, ignoring case; null if there is none or `units` is null. */
const scpi_unit_def_t* SCPI_FindUnit(const scpi_unit_def_t* units, const char* name, size_t len);

/* Units of a message */

/** A program message unit, without white space around it. */
typedef struct {
    const char* begin; /**< its header; `begin` == `end`: an empty unit */
    const char* end;
    const char* next;       /**< where the next unit starts, null after the last one */
    size_t header_len;      /**< bytes of its header, "?" included */
    size_t path_len;        /**< of these, through the last ':' (SCPI-99 6.2.4); 0 if none */
    scpi_bool_t common;     /**< begins with '*' */
    scpi_bool_t absolute;   /**< begins with ':' */
    int16_t fault;          /**< why the header is none or what is still open at the end; 0 if nothing */
    scpi_bool_t block_open; /**< ends within a block, whatever `fault` is: a LF would not end the message */
} scpi_message_unit_t;

/** The unit that starts at `p` of a message that ends at its LF, or at `end` without one: as the parser cuts
 *  it. */
scpi_message_unit_t SCPI_CutUnit(const char* p, const char* end);

/*
 * The framer finds the end of a program message in a stream of bytes (IEEE 488.2 7.5).
 *
 * A program message ends with LF. Only the bytes of a definite length block ("#<n><n digits><bytes>",
 * 7.7.6) may hold a LF that does not end it; an indefinite block ("#0") ends at the LF. A LF in an open
 * string ends the message too: on a socket the LF is the END message, and a client that forgot a quote
 * gets -151 instead of silence. Quotes still matter: a '#' inside a string opens no block.
 * A '#' opens a block only where a program data element may start and if a digit follows it: after the
 * white space that follows a header, or after a ','; never in an expression.
 *
 * The state is kept between calls, so each byte is examined once however the stream is split, and the
 * bytes of a block are skipped without being examined.
 */

/** Prepares for the first byte of a message. */
void SCPI_FramerReset(scpi_framer_t* framer);

/**
 * Scans the next `len` bytes.
 *
 * @return the number of bytes up to and including the LF that ends the message, and the framer is
 *         ready for the next message; 0 if the message continues past all `len` bytes.
 */
size_t SCPI_FramerScan(scpi_framer_t* framer, const char* data, size_t len);

#ifdef __cplusplus
}
#endif

#endif
