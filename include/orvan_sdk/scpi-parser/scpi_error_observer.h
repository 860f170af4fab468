/**
 * Observes the errors in the replies to clients. Replies are text, so this is where a program that counts or
 * shows errors sees each of them once.
 */
#ifndef ORVAN_SDK_SCPI_ERROR_OBSERVER_H
#define ORVAN_SDK_SCPI_ERROR_OBSERVER_H

#include <cstddef>

#include "orvan_sdk/orvan_api.h"

/**
 * @param socket the client's
 * @param text   results, not ended by NUL, at least one of which contains "-ERR": a line of the parser, or
 * all that a module has replied
 */
using ScpiErrorObserver = void (*)(int socket, const char* text, size_t len);

/**
 * Calls `observer` from now on with each text that SCPI_Write takes and that contains "-ERR", on the thread
 * that executes the message, before it is sent; nullptr: none. The observer must not use the parser. Any
 * thread.
 */
ORVAN_API void scpi_observe_errors(ScpiErrorObserver observer);

#endif
