/**
 * The bypass engine: consecutive forwarded sub-commands of one line are gathered into a run and sent to
 * the selected channel's module as one request. The values are mirrored in the channel's record.
 *
 * A run's text is its sub-commands in order, each ended by ";". It is allocated once, with the size of the
 * input from the run's first header on, and never grows: a sub-command takes no more room in the
 * run than it took in the line. All of it runs on the thread inside SCPI_Input.
 */
#ifndef ORVAN_SDK_SCPI_BYPASS_H
#define ORVAN_SDK_SCPI_BYPASS_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "orvan_sdk/orvan_api.h"
#include "orvan_sdk/scpi-parser/scpi_cmd_orvanx.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include "orvan_sdk/scpi-parser/scpi_parser.h"
#include <scpi/types.h>

/** Opens a run at the current command. @return false, and no run, when out of memory */
ORVAN_API bool start_bypass_run(scpi_t* ctx, userContext_t* u);

/** Closes the run, if any, and drops its text and items. Clears `had_error_line` as well. */
ORVAN_API void end_bypass_run(userContext_t* u);

/**
 * Adds the current command's header, one separator if it has parameters, its parameters and ";".
 * @return false, with the run unchanged, when no run is open or it does not fit
 */
ORVAN_API bool append_current_subcmd(scpi_t* ctx, userContext_t* u);

/** First position in [p, end) that is neither blank nor tab, or `end`. */
ORVAN_API const char* skip_ws_(const char* p, const char* end);

/**
 * Finds the header of the next sub-command in [p, end), after blanks, tabs and one ";". Only an absolute
 * header, which starts with ":" or "*", is found (SCPI-99 6.2.4).
 *
 * @param hdr,hlen the header with its "?"; written only if one is found
 * @return the position after the header, null if there is none
 */
ORVAN_API const char* scan_next_header(const char* p, const char* end, const char** hdr, size_t* hlen);

/** True when the next sub-command in [after_curr, line_end) is absolute and the first row of the context's
 *  table that it matches has this callback. SCPI_Init must have built the context. */
ORVAN_API bool next_is_bypass(scpi_t* ctx, const char* after_curr, const char* line_end,
                              scpi_command_callback_t bypass_cb);

/**
 * Sends a run, ended by CR LF, to the selected channel's module and makes its reply a result.
 *
 * The selected channel is 1 to 4. An empty reply makes no result.
 *
 * @param parser_opaque the Scpi_Orvanx
 * @return SCPI_RES_OK, also when the module failed or refused; SCPI_RES_ERR with -230 queued when
 *         `parser_opaque` is null, with -223 when the result was not accepted
 */
ORVAN_API scpi_result_t send_bypass_batch(scpi_t* ctx, void* parser_opaque, const char* buf, size_t len);

/** Cuts the text at its last "+OK", and one ";" in front of it. Without "+OK" only a ";" at the end is
 * cut. */
ORVAN_API void strip_trailing_ok(std::string& s);

/** True when the text starts with "-ERR". */
ORVAN_API bool is_seg_error(const std::string& s);

/**
 * Brings the selected channel's record up to date with the open run and its answer.
 *
 * Queries consume the reply's segments, separated by ";", in order; sets use their own parameter and consume
 * none. A segment that starts with "-ERR" is assigned to the next item, query or set, which is then not
 * written; later items are. So if a run fails as a whole, every set but the first still reaches the record.
 * Without a record nothing happens.
 *
 * @param reply the module's reply without its success word
 */
ORVAN_API void bypass_apply_db_updates(scpi_t* ctx, Scpi_Orvanx* parser, const std::string& reply);

#endif
