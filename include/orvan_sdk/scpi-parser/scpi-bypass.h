/**
 * The bypass engine: consecutive forwarded sub-commands of one line are gathered into a run and sent to
 * the selected channel's module as one request. What passes is mirrored in the channel's record.
 *
 * A run's text is its sub-commands one behind the other, each ended by ";". It is allocated once, as long
 * as the input from the run's first header on, and never grows: a sub-command takes no more room in the
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

/** Opens a run at the current command. @return false, and no run, when there is no memory */
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
 * Finds the header of the next sub-command in [p, end), behind blanks, tabs and one ";". Only an absolute
 * header is seen, one that starts with ":" or "*" (SCPI-99 6.2.4).
 *
 * @param hdr,hlen the header with its "?"; written only when there is one
 * @return the position behind the header, null when there is none
 */
ORVAN_API const char* scan_next_header(const char* p, const char* end, const char** hdr, size_t* hlen);

/** True when the next sub-command in [after_curr, line_end) is absolute and the first row of the context's
 *  table that it matches has this callback. SCPI_Init has built the context. */
ORVAN_API bool next_is_bypass(scpi_t* ctx, const char* after_curr, const char* line_end,
                              scpi_command_callback_t bypass_cb);

/**
 * Sends a run, ended by CR LF, to the selected channel's module and makes its reply a result.
 *
 * The selected channel is 1 to 4. An empty reply makes no result.
 *
 * @param parser_opaque the Scpi_Orvanx
 * @return SCPI_RES_OK, also when the module failed or refused; SCPI_RES_ERR with -230 queued when
 *         `parser_opaque` is null, with -223 when the result was not taken
 */
ORVAN_API scpi_result_t send_bypass_batch(scpi_t* ctx, void* parser_opaque, const char* buf, size_t len);

/** Cuts the text at its last "+OK", and one ";" in front of it. Without "+OK" only a ";" at the end goes. */
ORVAN_API void strip_trailing_ok(std::string& s);

/** True when the text starts with "-ERR". */
ORVAN_API bool is_seg_error(const std::string& s);

/**
 * Brings the selected channel's record up to date with the open run and its answer.
 *
 * Queries take the reply's segments, which ";" separates, in order; sets take their own parameter and no
 * segment. A segment that starts with "-ERR" is charged to the first item that meets it, query or set, which
 * is then not written; the items behind it are. So of a run that failed as a whole every set but the first
 * reaches the record. Without a record nothing happens.
 *
 * @param reply the module's reply without its success word
 */
ORVAN_API void bypass_apply_db_updates(scpi_t* ctx, Scpi_Orvanx* parser, const std::string& reply);

#endif
