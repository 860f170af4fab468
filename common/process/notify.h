#ifndef ORVAN_PROCESS_NOTIFY_H
#define ORVAN_PROCESS_NOTIFY_H

#include <chrono>

namespace orvan_common {

/**
 * Reports a state to the service manager, "READY=1", "STOPPING=1" or "WATCHDOG=1": one datagram to the socket
 * named by NOTIFY_SOCKET, a path or "@" and an abstract name. Blocks for at most a second.
 *
 * @return false if NOTIFY_SOCKET is not set or the datagram could not be sent.
 */
bool notify(const char* state);

/**
 * The longest interval at which the service manager's watchdog expects "WATCHDOG=1": WATCHDOG_USEC for the
 * process WATCHDOG_PID, or for any if that is not set. An invalid value is logged.
 *
 * @return 0 if it expects none.
 */
std::chrono::microseconds watchdog_period();

} // namespace orvan_common

#endif
