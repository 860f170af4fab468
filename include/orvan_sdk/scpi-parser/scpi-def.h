/**
 * The instrument's SCPI language and the parser's objects, one of each per process.
 */
#ifndef ORVAN_SDK_SCPI_DEF_H
#define ORVAN_SDK_SCPI_DEF_H

#include <cstddef>

#include "orvan_sdk/orvan_api.h"
#include <scpi/types.h>

/** Capacity of the input buffer: one message may carry a whole update image as an arbitrary block. */
inline constexpr size_t kScpiInputBufferSize = 0x300000;

/** Entries of the error queue. */
inline constexpr int kScpiErrorQueueSize = 20;

/**
 * The language, ended by a row with a null pattern. `tag` is the OrvanElement that mirrors the row's value;
 * the set row of a value comes before its query row, since a look-up by tag takes the first.
 */
ORVAN_API extern const scpi_command_t scpi_commands[];

/** Names of the trigger sources that the instrument's own software uses. */
ORVAN_API extern const scpi_choice_def_t trigger_source[];

/** The five callbacks. Never modified; not const because parser libraries take them so. */
ORVAN_API extern scpi_interface_t scpi_interface;

/** The parser context. ScpiParser::init_new_scpi builds it; it lives as long as the process. */
ORVAN_API extern scpi_t scpi_context;

ORVAN_API extern char scpi_input_buffer[kScpiInputBufferSize];
ORVAN_API extern scpi_error_t scpi_error_queue_data[kScpiErrorQueueSize];

#endif
