/**
 * How the program message at work gets on, for whoever has to know a long command from one that hangs.
 *
 * A recall towards a silent module takes minutes and is well, as each of its requests comes to an end; a text
 * reply that does not fit into its buffer (SCPI_Write) never does.
 */
#ifndef ORVAN_SDK_SCPI_PROGRESS_H
#define ORVAN_SDK_SCPI_PROGRESS_H

#include <cstdint>

#include "orvan_sdk/orvan_api.h"

/**
 * A count that moves when a handler sets to work on the device or the modules, a request to a module ends,
 * whatever its outcome, a piece of output has been taken, or bytes of a reply have left. It wraps around. Any
 * thread.
 */
ORVAN_API uint32_t scpi_progress();

/** Moves the count. Any thread. */
ORVAN_API void scpi_note_progress();

/** From now on the calling thread moves the count no more: what it does, it does for no message. */
ORVAN_API void scpi_ignore_progress_of_this_thread();

#endif
