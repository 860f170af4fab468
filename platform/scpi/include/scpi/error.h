/**
 * The error queue (SCPI-99 21.8) and the standard error numbers.
 */
#ifndef SCPI_ERROR_H
#define SCPI_ERROR_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The numbers that the library itself, the controller and the channel modules raise (SCPI-99 21.8.9 to
 *  21.8.12). */
enum {
    SCPI_ERROR_INVALID_CHARACTER = -101,
    SCPI_ERROR_SYNTAX = -102,
    SCPI_ERROR_INVALID_SEPARATOR = -103,
    SCPI_ERROR_DATA_TYPE = -104,
    SCPI_ERROR_GET_NOT_ALLOWED = -105,
    SCPI_ERROR_PARAMETER_NOT_ALLOWED = -108,
    SCPI_ERROR_MISSING_PARAMETER = -109,
    SCPI_ERROR_COMMAND_HEADER = -110,
    SCPI_ERROR_HEADER_SEPARATOR = -111,
    SCPI_ERROR_PROGRAM_MNEMONIC_TOO_LONG = -112,
    SCPI_ERROR_UNDEFINED_HEADER = -113,
    SCPI_ERROR_NUMERIC_DATA = -120,
    SCPI_ERROR_INVALID_CHARACTER_IN_NUMBER = -121,
    SCPI_ERROR_EXPONENT_TOO_LARGE = -123,
    SCPI_ERROR_TOO_MANY_DIGITS = -124,
    SCPI_ERROR_NUMERIC_DATA_NOT_ALLOWED = -128,
    SCPI_ERROR_INVALID_SUFFIX = -131,
    SCPI_ERROR_SUFFIX_TOO_LONG = -134,
    SCPI_ERROR_SUFFIX_NOT_ALLOWED = -138,
    SCPI_ERROR_INVALID_CHARACTER_DATA = -141,
    SCPI_ERROR_CHARACTER_DATA_TOO_LONG = -144,
    SCPI_ERROR_CHARACTER_DATA_NOT_ALLOWED = -148,
    SCPI_ERROR_INVALID_STRING_DATA = -151,
    SCPI_ERROR_STRING_DATA_NOT_ALLOWED = -158,
    SCPI_ERROR_INVALID_BLOCK_DATA = -161,
    SCPI_ERROR_BLOCK_DATA_NOT_ALLOWED = -168,
    SCPI_ERROR_INVALID_EXPRESSION = -171,
    SCPI_ERROR_EXPRESSION_DATA_NOT_ALLOWED = -178,
    SCPI_ERROR_EXECUTION = -200,
    SCPI_ERROR_TRIGGER_IGNORED = -211,
    SCPI_ERROR_PARAMETER = -220,
    SCPI_ERROR_DATA_OUT_OF_RANGE = -222,
    SCPI_ERROR_TOO_MUCH_DATA = -223,
    SCPI_ERROR_ILLEGAL_PARAMETER_VALUE = -224,
    SCPI_ERROR_OUT_OF_MEMORY = -225,
    SCPI_ERROR_DATA_CORRUPT_OR_STALE = -230,
    SCPI_ERROR_HARDWARE_MISSING = -241,
    SCPI_ERROR_MASS_STORAGE = -250,
    SCPI_ERROR_MEDIA_FULL = -254,
    SCPI_ERROR_FILE_NAME_NOT_FOUND = -256,
    SCPI_ERROR_FILE_NAME = -257,
    SCPI_ERROR_SYSTEM = -310,
    SCPI_ERROR_DEVICE_MEMORY = -321,
    SCPI_ERROR_QUEUE_OVERFLOW = -350,
    SCPI_ERROR_COMMUNICATION = -360,
    SCPI_ERROR_INPUT_BUFFER_OVERRUN = -363,
    SCPI_ERROR_TIME_OUT = -365,
    SCPI_ERROR_QUERY = -400,
    SCPI_ERROR_QUERY_INTERRUPTED = -410,
    SCPI_ERROR_QUERY_UNTERMINATED = -420
};

/**
 * Queues the error, sets its bit in the event status register (SCPI-99 21.8.9 ff.), marks the current
 * command and message as failed and then calls the `error` callback with the original `err`.
 *
 * A number beyond 16 bits is queued as its low 16 bits. 0 is not an error and is ignored.
 * On a full queue the newest entry loses its text and becomes -350 (21.8.1), and the device error bit is
 * set as well; `err` itself is lost to the queue, not to the callback.
 */
void SCPI_ErrorPush(scpi_t* context, int_fast16_t err);

/** The same with a text stored in the queue entry: at most `info_len` bytes up to its first NUL; with
 *  `info_len` 0 all of it up to its NUL. An empty or null text is no text. When out of memory the error is
 *  queued without it. */
void SCPI_ErrorPushEx(scpi_t* context, int_fast16_t err, const char* info, size_t info_len);

/** Takes the oldest entry; false and {0, null} on an empty queue. The caller frees the text with
 * SCPI_ErrorFree. */
scpi_bool_t SCPI_ErrorPop(scpi_t* context, scpi_error_t* error);

/** Empties the queue. */
void SCPI_ErrorClear(scpi_t* context);

int32_t SCPI_ErrorCount(const scpi_t* context);

/** Standard text of an error number; "Unknown error" for a non-standard one. */
const char* SCPI_ErrorTranslate(int_fast16_t err);

#ifdef __cplusplus
}
#endif

#endif
