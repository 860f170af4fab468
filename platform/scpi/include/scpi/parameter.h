/**
 * Reading the parameters of the current command, one after the other (IEEE 488.2 7.7).
 *
 * Every reader takes the next program data element, gives true with the value, or false with the value
 * at zero (null, false). False without an error means one thing only: `mandatory` was false and the
 * parameters have ended; SCPI_ParamErrorOccurred tells the two apart. An error is in the queue when the
 * reader returns. Errors of every reader:
 *
 *   -109  `mandatory`, and the parameters have ended
 *   -102  nothing between two commas or behind the last one
 *   -103  no comma between two elements
 *   -101, -12x, -134, -141, -144, -151, -161, -171  the element is not well formed
 *
 * An element of a kind that the reader does not take: -104 by SCPI_ParamBool and SCPI_ParamChoice,
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

/** Takes the next element as it stands; its pointers are good until the command ends. */
scpi_bool_t SCPI_Parameter(scpi_t* context, scpi_parameter_t* parameter, scpi_bool_t mandatory);

/** False for an element that was not there or not well formed. */
scpi_bool_t SCPI_ParamIsValid(const scpi_parameter_t* parameter);

/** True for decimal and #H #Q #B numbers; for one with a suffix only if `suffix_allowed`. */
scpi_bool_t SCPI_ParamIsNumber(const scpi_parameter_t* parameter, scpi_bool_t suffix_allowed);

/** True when the current command has queued an error, so that an absent optional parameter is none. */
scpi_bool_t SCPI_ParamErrorOccurred(const scpi_t* context);

/* Numbers: every form of 7.7.2 and 7.7.4. A fraction is rounded to the nearest integer, a half away from
 * zero; -222 past the limits of the type. #H #Q #B carry no sign, so #HFFFFFFFF is not -1. */

scpi_bool_t SCPI_ParamInt32(scpi_t* context, int32_t* value, scpi_bool_t mandatory);
scpi_bool_t SCPI_ParamUInt32(scpi_t* context, uint32_t* value, scpi_bool_t mandatory);
scpi_bool_t SCPI_ParamInt64(scpi_t* context, int64_t* value, scpi_bool_t mandatory);
scpi_bool_t SCPI_ParamUInt64(scpi_t* context, uint64_t* value, scpi_bool_t mandatory);

/** Correctly rounded; too large is -222, too small is zero. */
scpi_bool_t SCPI_ParamFloat(scpi_t* context, float* value, scpi_bool_t mandatory);
scpi_bool_t SCPI_ParamDouble(scpi_t* context, double* value, scpi_bool_t mandatory);

/** Converters of an element that SCPI_Parameter gave; the same values and errors. */
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
 * A number with an optional suffix out of `context->units`, in the base unit, or a mnemonic of `special`.
 *
 * Null `special` takes no mnemonic (-148); null units take no suffix (-138). -131 for an unknown suffix,
 * -224 for an unknown mnemonic, -222 for a number too large.
 */
scpi_bool_t SCPI_ParamNumber(scpi_t* context, const scpi_choice_def_t* special, scpi_number_t* value,
                             scpi_bool_t mandatory);

/* Mnemonics */

/** ON, OFF, or a number that is true when it does not round to 0 (SCPI-99 7.3). -224 for other words. */
scpi_bool_t SCPI_ParamBool(scpi_t* context, scpi_bool_t* value, scpi_bool_t mandatory);

/**
 * A mnemonic of the list, in its short or long form and in any case: "INTernal" is INT or INTERNAL.
 *
 * A name may be a number ("2"), which every form of that whole number then matches (2, +2.0). Character
 * data and numbers are taken; -224 when no name of the list matches.
 */
scpi_bool_t SCPI_ParamChoice(scpi_t* context, const scpi_choice_def_t* options, int32_t* value,
                             scpi_bool_t mandatory);

/** Name of the first entry with that tag, as the list spells it; false and null when there is none. */
scpi_bool_t SCPI_ChoiceToName(const scpi_choice_def_t* options, int32_t tag, const char** text);

/* Texts and blocks */

/** Points at character data, or at what stands between the quotes of a string: a doubled quote in it is
 *  still doubled. */
scpi_bool_t SCPI_ParamCharacters(scpi_t* context, const char** value, size_t* len, scpi_bool_t mandatory);

/**
 * Copies a text: a string without its quotes, each doubled quote once; or an unquoted text as it stands.
 *
 * The unquoted text is whatever reaches to the next comma or the end: 192.168.1.2, host-name.local, /a/b,
 * 00:1A:2B, 25. It holds no white space (-103), no quote (-151) and no ';'; it starts with no '#' (-128,
 * -168) and no '(' (-178). So an address needs no quotes, and one with a blank or a comma in it does.
 *
 * @param buffer a NUL ends the text in it: it takes up to size - 1 bytes. A longer text is -223, and the
 *               buffer is then empty, as after every other error
 * @param len    bytes of the text, which may itself hold a NUL; may be null, which the open library refuses
 */
scpi_bool_t SCPI_ParamCopyText(scpi_t* context, char* buffer, size_t size, size_t* len,
                               scpi_bool_t mandatory);

/** Points at the bytes of a block inside the input buffer; they are good until the command ends. An
 *  indefinite block ("#0") runs to the end of the parameters. */
scpi_bool_t SCPI_ParamArbitraryBlock(scpi_t* context, const char** data, size_t* len, scpi_bool_t mandatory);

#ifdef __cplusplus
}
#endif

#endif
