/**
 * The reply to one client line: its results separated by ";", then ";+OK" (or "+OK" alone), then CR LF.
 *
 * The reply is collected in one transmit buffer of 2048 bytes and sent in one corked burst at the end of
 * the line. "+OK" means that the reply is complete, not that the line succeeded: error lines appear among
 * the results, as text that contains "-ERR". All of it runs on the thread inside SCPI_Input.
 */
#ifndef ORVAN_SDK_SCPI_REPLY_H
#define ORVAN_SDK_SCPI_REPLY_H

#include <cstddef>

#include "orvan_sdk/orvan_api.h"
#include <scpi/types.h>

/**
 * `write` callback: adds one piece of output to the reply.
 *
 * A piece that follows earlier output gets a ";" in front, unless there is a "," at the joint or the reply is
 * an arbitrary block (IEEE 488.2 8.7.9), recognised by a leading "#" while `arbitrary_remaining` is not 0. A
 * block passes through the buffer in chunks of 2048 bytes. The library's line end, a piece of exactly CR LF,
 * is dropped.
 *
 * Text that exceeds the buffer cannot be sent: the call does not return. A text reply is at most 2048 bytes
 * long, separators included, and its final words are omitted if they do not fit.
 *
 * @return bytes taken, including those of a dropped line end; less than `len` only when the socket fails
 *         under a block; 0 without a user record, data or length
 */
ORVAN_API size_t SCPI_Write(scpi_t* context, const char* data, size_t len);

/**
 * `flush` callback: ends the reply with the success word and CR LF and sends it. The buffer is empty
 * afterwards, whether or not the socket took the bytes; an open bypass run is dropped.
 *
 * Socket failures are reported on standard error only. The parser's lease is released last: the next
 * client may be using the context before this call has returned. @return SCPI_RES_OK
 */
ORVAN_API scpi_result_t SCPI_Flush(scpi_t* context);

/**
 * Sends the contents of the buffer without framing and without corking. The buffer is emptied
 * only if all of it was sent. @return bytes sent, 0 when there was nothing or nothing could be sent
 */
ORVAN_API size_t SCPI_FlushRaw(scpi_t* context);

/** Non-zero if `buf` contains the `toklen` bytes of `tok`; 0 for a null or an empty token. */
ORVAN_API int has_token(const char* buf, size_t len, const char* tok, size_t toklen);

/**
 * Logs bytes at LOG_INFO, with the words "sending ..." in either direction. Text is logged without its
 * trailing CR and LF and ends at a NUL; for a block only the length is logged.
 */
ORVAN_API void log_send(const char* buf, size_t len, int socket_fd);

#endif
