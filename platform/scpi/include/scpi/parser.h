/**
 * The parser: building a context, feeding it, matching headers.
 */
#ifndef SCPI_PARSER_H
#define SCPI_PARSER_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Fills the context and builds the index over `commands`.
 *
 * `commands`, `interface`, `units`, the four identification texts, `input_buffer` and
 * `error_queue_data` stay the caller's and must outlive the context. The context needs no
 * initialisation beforehand. `user_context` becomes null; the caller writes it afterwards. Without memory for
 * the index every header is undefined.
 */
void SCPI_Init(scpi_t* context, const scpi_command_t* commands, const scpi_interface_t* interface,
               const scpi_unit_def_t* units, const char* idn1, const char* idn2, const char* idn3,
               const char* idn4, char* input_buffer, size_t input_buffer_length,
               scpi_error_t* error_queue_data, int16_t error_queue_size);

/**
 * Takes bytes in any pieces; executes every program message that they complete, in order.
 *
 * For each complete message, an empty one too: its units are executed in order, then "\r\n" goes through
 * `write` as a write of its own, then `flush` is called, once. No separator is written between the results
 * of two units. The parser touches nothing of the context behind the flush of the last complete message
 * when no byte follows it, so `flush` may hand the context on to another thread.
 *
 * While handlers run, `buffer.data + buffer.position` is the end of the message, its line end included,
 * whatever else was received. The bytes behind the running unit are as the client sent them.
 *
 * A relative header gets the path of the header before it (SCPI-99 6.2.4) written in front of it in the
 * buffer: `param_list.cmd_raw` is ":SOUR:POW" for the second unit of ":SOUR:FREQ 1;POW 2", and the client's
 * own separator stands behind it. The first header of a message stays as it was written, and a common
 * command leaves the path alone.
 *
 * A unit that fails does not keep later ones from being executed. What a unit can fail with here:
 *
 *     -101  a character that has no place in a header
 *     -102  program data where the header should be
 *     -108  the handler left parameters unread
 *     -110  an empty mnemonic, or one that starts with no letter
 *     -111  no white space behind the header
 *     -112  a mnemonic of more than 12 characters
 *     -113  an undefined header
 *     -151  a string is still open at the end of the message
 *     -161  a block holds less than it announces
 *     -171  an expression is still open at the end of the message
 *     -200  the handler failed and queued no error
 *
 * A message that outgrows the buffer queues -363 once, is dropped to its end, and is flushed there.
 * A length of 0 ends the message as if a LF had come (END message).
 * Between two calls the application may set `buffer.position` to 0: the partial message is dropped.
 *
 * @return true when at least one message was executed, none of them queued an error, and no
 *         incomplete message is left; false otherwise.
 */
scpi_bool_t SCPI_Input(scpi_t* context, const char* data, size_t len);

/**
 * Executes one program message in a caller's own buffer, without write of a line end and without flush.
 *
 * The message ends at its LF or behind `len` bytes. The text may be changed. A handler may call this, with a
 * text outside the input buffer: its own command's state is as before when it returns, but for `cmd_error`.
 *
 * @return true when no error was queued
 */
scpi_bool_t SCPI_Parse(scpi_t* context, char* data, size_t len);

/** True when the header (no white space around it, with its "?" if it is a query) matches the pattern.
 *  The leading ':' may be missing in either; a common command's '*' may not. */
scpi_bool_t SCPI_Match(const char* pattern, const char* header, size_t len);

/** `tag` of the current command's row; 0 outside a command. */
int32_t SCPI_CmdTag(const scpi_t* context);

/** True when the current command's header matches the pattern. */
scpi_bool_t SCPI_IsCmd(const scpi_t* context, const char* pattern);

#ifdef __cplusplus
}
#endif

#endif
