/**
 * Reading the parameters of the current command, one by one (IEEE 488.2 7.7).
 *
 * Every reader takes the next program data element and returns true with the value, or false with the value
 * set to zero (null, false). False without an error only means that `mandatory` was false and there are no
 * more parameters; SCPI_ParamErrorOccurred distinguishes the two. Errors are queued before the reader
 * returns. Errors common to all readers:
 *
 *   -109  `mandatory`, and there are no more parameters
 *   -102  nothing between two commas or after the last one
 *   -103  no comma between two elements
 *   -101, -12x, -134, -141, -144, -151, -161, -171  the element is not well formed
 *
 * An element of a kind that the reader does not accept: -104 from SCPI_ParamBool and SCPI_ParamChoice,
 * else the kind's own number: -128 numbers, -138 numbers with a suffix, -148 character data,
 * -158 strings, -168 blocks, -178 expressions.
 */
#ifndef SCPI_PARAMETER_H
#define SCPI_PARAMETER_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Any element */

/** Takes the next element unconverted; its pointers are valid until the command ends. */
scpi_bool_t SCPI_Parameter(scpi_t* context, scpi_parameter_t* parameter, scpi_bool_t mandatory);

/** False for an element that was absent or malformed. */
scpi_bool_t SCPI_ParamIsValid(const scpi_parameter_t* parameter);

/** True for decimal and #H #Q #B numbers; for one with a suffix only if `suffix_allowed`. */
scpi_bool_t SCPI_ParamIsNumber(const scpi_parameter_t* parameter, scpi_bool_t suffix_allowed);

/** True when the current command has queued an error, which an absent optional parameter does not. */
scpi_bool_t SCPI_ParamErrorOccurred(const scpi_t* context);

/* Numbers: every form of 7.7.2 and 7.7.4. A fraction is rounded to the nearest integer, a half away from
 * zero; -222 beyond the limits of the type. #H #Q #B carry no sign, so #HFFFFFFFF is not -1. */

scpi_bool_t SCPI_ParamInt32(scpi_t* context, int32_t* value, scpi_bool_t mandatory);
scpi_bool_t SCPI_ParamUInt32(scpi_t* context, uint32_t* value, scpi_bool_t mandatory);
scpi_bool_t SCPI_ParamInt64(scpi_t* context, int64_t* value, scpi_bool_t mandatory);
scpi_bool_t SCPI_ParamUInt64(scpi_t* context, uint64_t* value, scpi_bool_t mandatory);

/** Correctly rounded; too large is -222, too small is zero. */
scpi_bool_t SCPI_ParamFloat(scpi_t* context, float* value, scpi_bool_t mandatory);
scpi_bool_t SCPI_ParamDouble(scpi_t* context, double* value, scpi_bool_t mandatory);

/** Convert an element returned by SCPI_Parameter; same values and errors as above. */
scpi_bool_t SCPI_ParamToInt32(scpi_t* context, const scpi_parameter_t* parameter, int32_t* value);
scpi_bool_t SCPI_ParamToUInt32(scpi_t* context, const scpi_parameter_t* parameter, uint32_t* value);
scpi_bool_t SCPI_ParamToInt64(scpi_t* context, const scpi_parameter_t* parameter, int64_t* value);
scpi_bool_t SCPI_ParamToUInt64(scpi_t* context, const scpi_parameter_t* parameter, uint64_t* value);
scpi_bool_t SCPI_ParamToFloat(scpi_t* context, const scpi_parameter_t* parameter, float* value);
scpi_bool_t SCPI_ParamToDouble(scpi_t* context, const scpi_parameter_t* parameter, double* value);

/** MINimum, MAXimum, DEFault, UP, DOWN, NAN, INFinity, NINF, AUTO with the values of
 *  scpi_special_number_t as tags (SCPI-99 7.2.1). Ends with a null name. */
extern const scpi_choice_def_t scpi_special_numbers_def[];

/**
 * A number with an optional suffix from `context->units`, in the base unit, or a mnemonic of `special`.
 *
 * With null `special` mnemonics are refused (-148), with null units suffixes (-138). -131 for an unknown
 * suffix,
 * -224 for an unknown mnemonic, -222 for a number too large.
 */
scpi_bool_t SCPI_ParamNumber(scpi_t* context, const scpi_choice_def_t* special, scpi_number_t* value,
                             scpi_bool_t mandatory);

/* Mnemonics */

/** ON, OFF, or a number, true unless it rounds to 0 (SCPI-99 7.3). -224 for other words. */
scpi_bool_t SCPI_ParamBool(scpi_t* context, scpi_bool_t* value, scpi_bool_t mandatory);

/**
 * A mnemonic of the list, in its short or long form, ignoring case: "INTernal" is INT or INTERNAL.
 *
 * A name may be a number ("2"), which every form of that integer matches (2, +2.0). Character data and
 * numbers are accepted; -224 if no name of the list matches.
 */
scpi_bool_t SCPI_ParamChoice(scpi_t* context, const scpi_choice_def_t* options, int32_t* value,
                             scpi_bool_t mandatory);

/** Name of the first entry with that tag, as the list spells it; false and null if there is none. */
scpi_bool_t SCPI_ChoiceToName(const scpi_choice_def_t* options, int32_t tag, const char** text);

/* Texts and blocks */

/** Points at character data, or at the contents of a string between its quotes, with doubled quotes still
 *  doubled. */
scpi_bool_t SCPI_ParamCharacters(scpi_t* context, const char** value, size_t* len, scpi_bool_t mandatory);

/**
 * Copies a text: a string without its quotes, doubled quotes reduced to one; or an unquoted text unchanged.
 *
 * Unquoted text extends to the next comma or the end: 192.168.1.2, host-name.local, /a/b,
 * 00:1A:2B, 25. It holds no white space (-103), no quote (-151) and no ';'; it starts with no '#' (-128,
 * -168) and no '(' (-178). So an address needs quotes only if it contains a blank or a comma.
 *
 * @param buffer receives the text, at most size - 1 bytes, and a NUL. A longer text is -223, and the buffer
 *               is then empty, as after every other error
 * @param len    bytes of the text, which may itself contain a NUL; may be null, which the open library
 *               rejects
 */
scpi_bool_t SCPI_ParamCopyText(scpi_t* context, char* buffer, size_t size, size_t* len,
                               scpi_bool_t mandatory);

/** Points at the bytes of a block inside the input buffer; they are valid until the command ends.
 *  An indefinite block ("#0") extends to the end of the parameters. */
scpi_bool_t SCPI_ParamArbitraryBlock(scpi_t* context, const char** data, size_t* len, scpi_bool_t mandatory);

#ifdef __cplusplus
}
#endif

#endif
