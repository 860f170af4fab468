/**
 * The lease: who may use the one parser, from the first byte of a message to the flush of its reply.
 *
 * A client is known by its socket descriptor alone; a connection with a recycled number is the same
 * client. A client that stops in the middle of a message loses the lease after SCPI_WATCHDOG_MS without
 * another piece: what it has sent is dropped, and it is told nothing. A message that is being executed is
 * under no such limit, unless it came in pieces and the time of the last piece runs out on it: the lease
 * goes to the next client then, in the midst of the command.
 *
 * All calls are safe on any thread. None of them is held up by a command under way but scpi_lease_acquire.
 */
#ifndef ORVAN_SDK_SCPI_LEASE_H
#define ORVAN_SDK_SCPI_LEASE_H

#include "orvan_sdk/orvan_api.h"

/** Largest gap between two pieces of one message, in milliseconds. */
inline constexpr int SCPI_WATCHDOG_MS = 3000;

/**
 * Waits, without a limit of time, until no other client holds the lease, and takes it. The owner itself
 * gets through at once, and a running watchdog goes on running.
 */
ORVAN_API void scpi_lease_acquire(int fd);

/** Gives the lease up and lets the next client in. Nothing happens when `fd` does not hold it. */
ORVAN_API void scpi_lease_release(int fd);

/** As scpi_lease_release, and drops what stands in the input buffer (SCPI_Reset). */
ORVAN_API void scpi_lease_abort_if_owner(int fd);

/**
 * Gives a client that has more to send SCPI_WATCHDOG_MS from now on. Nothing happens when `fd` does not hold
 * the lease. A timer that cannot be made is not reported; the client then keeps the lease until it is lost.
 */
ORVAN_API void scpi_watchdog_pet_owner(int fd);

#endif
