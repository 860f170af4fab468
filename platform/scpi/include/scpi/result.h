/**
 * Writing the results of the current query (IEEE 488.2 8.7).
 *
 * Results are passed to the `write` callback: first a "," in a separate call if the command already has a
 * result, then the whole result in one call; blocks are split into header and data. Every function returns
 * the number of bytes written, including the ",", or 0 if nothing was accepted; a result that was not
 * accepted does not count. A null `write` accepts and discards everything.
 */
#ifndef SCPI_RESULT_H
#define SCPI_RESULT_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** A text, unchanged. An empty or null text is no result: nothing is written, not even the ",". */
size_t SCPI_ResultCharacters(scpi_t* context, const char* data, size_t len);

/** The same up to the text's NUL. */
size_t SCPI_ResultMnemonic(scpi_t* context, const char* data);

/** Longest quoted text: including the enclosing and doubled quotes. */
enum { SCPI_RESULT_TEXT_MAX = 4096 };

/** A string in double quotes, a quote in it doubled (8.7.8). A null text counts as empty. 0 and nothing
 *  written beyond SCPI_RESULT_TEXT_MAX, so that a result is never split across several writes. */
size_t SCPI_ResultText(scpi_t* context, const char* data);

/** "1" or "0". */
size_t SCPI_ResultBool(scpi_t* context, scpi_bool_t value);

/* Integers (8.7.2). */

size_t SCPI_ResultInt8(scpi_t* context, int8_t value);
size_t SCPI_ResultInt16(scpi_t* context, int16_t value);
size_t SCPI_ResultInt32(scpi_t* context, int32_t value);
size_t SCPI_ResultInt64(scpi_t* context, int64_t value);
size_t SCPI_ResultUInt8(scpi_t* context, uint8_t value);
size_t SCPI_ResultUInt16(scpi_t* context, uint16_t value);
size_t SCPI_ResultUInt32(scpi_t* context, uint32_t value);
size_t SCPI_ResultUInt64(scpi_t* context, uint64_t value);

/* The same in base 16 ("#H"), 8 ("#Q"), 2 ("#B") or 10 (no prefix), 8.7.5 to 8.7.7, capitals and no
 * leading zeros. A negative number is its two's complement in the width of its type, except in base 10.
 * Any other base: 0, nothing written. */

size_t SCPI_ResultInt8Base(scpi_t* context, int8_t value, int8_t base);
size_t SCPI_ResultInt16Base(scpi_t* context, int16_t value, int8_t base);
size_t SCPI_ResultInt32Base(scpi_t* context, int32_t value, int8_t base);
size_t SCPI_ResultInt64Base(scpi_t* context, int64_t value, int8_t base);
size_t SCPI_ResultUInt8Base(scpi_t* context, uint8_t value, int8_t base);
size_t SCPI_ResultUInt16Base(scpi_t* context, uint16_t value, int8_t base);
size_t SCPI_ResultUInt32Base(scpi_t* context, uint32_t value, int8_t base);
size_t SCPI_ResultUInt64Base(scpi_t* context, uint64_t value, int8_t base);

/* The fewest digits that read back as the same value, as NR1, NR2 or NR3 (8.7.2 to 8.7.4): "5", "0.25",
 * "1.0E+09". Infinity is 9.9E+37 with its sign, not a number is 9.91E+37 (SCPI-99 7.2.1.4, 7.2.1.5). */

size_t SCPI_ResultFloat(scpi_t* context, float value);
size_t SCPI_ResultDouble(scpi_t* context, double value);

/* Definite length blocks (8.7.9), up to 999999999 bytes. `arbitrary_remaining` of the context is the number
 * of bytes still to come, set before the header is written, so that `write` can recognise a block's "#". */

/** Header and data. Null data or too long: 0, nothing written; length 0 writes "#10". If `write`
 *  accepts less than all of it: 0, and the block counts as ended. */
size_t SCPI_ResultArbitraryBlock(scpi_t* context, const void* data, size_t len);

/** The header of a block whose data follow in SCPI_ResultArbitraryBlockData calls. */
size_t SCPI_ResultArbitraryBlockHeader(scpi_t* context, size_t len);

/** Data of the block, in as many pieces as the caller likes; 0 and nothing written for more than the
 *  header announced. */
size_t SCPI_ResultArbitraryBlockData(scpi_t* context, const void* data, size_t len);

/** An entry of the error queue, its number and "text;info" in quotes, as two results (SCPI-99 21.8). The
 *  text is truncated to 255 characters. */
size_t SCPI_ResultError(scpi_t* context, const scpi_error_t* error);

#ifdef __cplusplus
}
#endif

#endif
