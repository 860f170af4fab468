/**
 * The lease: which client may use the parser, from the first byte of a message to the flush of its reply.
 *
 * A client is identified only by its socket descriptor; a connection with a recycled number is the same
 * client. A client that stops in the middle of a message loses the lease after SCPI_WATCHDOG_MS without
 * another piece: what it has sent is dropped, and it is not notified. A message that is being executed has
 * no such limit, unless it came in pieces and the time of the last piece runs out meanwhile: the lease then
 * passes to the next client in the middle of the command.
 *
 * All calls are safe on any thread. Only scpi_lease_acquire is held up by a running command.
 */
#ifndef ORVAN_SDK_SCPI_LEASE_H
#define ORVAN_SDK_SCPI_LEASE_H

#include "orvan_sdk/orvan_api.h"

/** Largest gap between two pieces of one message, in milliseconds. */
inline constexpr int SCPI_WATCHDOG_MS = 3000;

/**
 * Waits, without a time limit, until no other client holds the lease, and takes it. For its owner it returns
 * at once, and a running watchdog keeps running.
 */
ORVAN_API void scpi_lease_acquire(int fd);

/** Releases the lease and lets the next client in. Does nothing when `fd` does not hold it. */
ORVAN_API void scpi_lease_release(int fd);

/** As scpi_lease_release, and drops the contents of the input buffer (SCPI_Reset). */
ORVAN_API void scpi_lease_abort_if_owner(int fd);

/**
 * Gives a client that has more to send another SCPI_WATCHDOG_MS. Does nothing when `fd` does not hold the
 * lease. Failure to create the timer is not reported; the client then keeps the lease until its connection
 * is lost.
 */
ORVAN_API void scpi_watchdog_pet_owner(int fd);

#endif
