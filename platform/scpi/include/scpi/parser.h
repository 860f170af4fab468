/**
 * The parser: initialising a context, feeding it input, matching headers.
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
 * `error_queue_data` remain owned by the caller and must outlive the context. The context needs no
 * initialisation beforehand. `user_context` becomes null; the caller sets it afterwards. If there is no
 * memory for the index, every header is undefined.
 */
void SCPI_Init(scpi_t* context, const scpi_command_t* commands, const scpi_interface_t* interface,
               const scpi_unit_def_t* units, const char* idn1, const char* idn2, const char* idn3,
               const char* idn4, char* input_buffer, size_t input_buffer_length,
               scpi_error_t* error_queue_data, int16_t error_queue_size);

/**
 * Takes input in any pieces and executes every program message that it completes, in order.
 *
 * For each complete message, even an empty one, its units are executed in order, then "\r\n" goes through
 * `write` in a separate call, then `flush` is called, once. No separator is written between the results
 * of two units. After the flush of the last complete message, if no byte follows it, the parser no longer
 * accesses the context, so `flush` may hand the context over to another thread.
 *
 * While handlers run, `buffer.data + buffer.position` is the end of the message, its line end included,
 * whatever else was received. The bytes after the running unit are as the client sent them.
 *
 * A relative header gets the path of the header before it (SCPI-99 6.2.4) written in front of it in the
 * buffer: `param_list.cmd_raw` is ":SOUR:POW" for the second unit of ":SOUR:FREQ 1;POW 2", followed by
 * the client's own separator. The first header of a message is left as written, and a common command leaves
 * the path unchanged.
 *
 * A unit that fails does not prevent later ones from being executed. Errors of a unit:
 *
 *     -101  a character not allowed in a header
 *     -102  program data where the header should be
 *     -108  the handler left parameters unread
 *     -110  an empty mnemonic, or one that does not start with a letter
 *     -111  no white space after the header
 *     -112  a mnemonic of more than 12 characters
 *     -113  an undefined header
 *     -151  an unterminated string at the end of the message
 *     -161  a block is shorter than announced
 *     -171  an unterminated expression at the end of the message
 *     -200  the handler failed and queued no error
 *
 * A message that overflows the buffer queues -363 once, is dropped up to its end, and is flushed there.
 * A length of 0 ends the message as if a LF had come (END message).
 * Between two calls the application may set `buffer.position` to 0: the partial message is dropped.
 *
 * @return true if at least one message was executed, none of them queued an error, and no
 *         incomplete message is left; false otherwise.
 */
scpi_bool_t SCPI_Input(scpi_t* context, const char* data, size_t len);

/**
 * Executes one program message in the caller's buffer, without writing a line end and without flush.
 *
 * The message ends at its LF or after `len` bytes. The text may be modified. A handler may call this with a
 * text outside the input buffer: its own command's state is preserved, except for `cmd_error`.
 *
 * @return true if no error was queued
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
