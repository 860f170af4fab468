/**
 * Progress of the running program message, to distinguish a long command from one that hangs.
 *
 * A recall to a silent module takes minutes but does progress, as each of its requests ends; a text reply
 * that does not fit into its buffer (SCPI_Write) never does.
 */
#ifndef ORVAN_SDK_SCPI_PROGRESS_H
#define ORVAN_SDK_SCPI_PROGRESS_H

#include <cstdint>

#include "orvan_sdk/orvan_api.h"

/**
 * A counter that changes when a handler starts work on the device or the modules, a request to a module ends,
 * whatever its outcome, a piece of output is accepted, or bytes of a reply are sent. It wraps around. Any
 * thread.
 */
ORVAN_API uint32_t scpi_progress();

/** Increments the counter. Any thread. */
ORVAN_API void scpi_note_progress();

/** Stops the calling thread from incrementing the counter: its work belongs to no message. */
ORVAN_API void scpi_ignore_progress_of_this_thread();

#endif
