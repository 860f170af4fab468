#ifndef ORVAN_SERVICE_NOTIFY_H
#define ORVAN_SERVICE_NOTIFY_H

#include <chrono>

namespace orvan_service {

/**
 * Reports a state to the service manager, "READY=1", "STOPPING=1", "WATCHDOG=1" or "STATUS=" and a line of
 * text: one datagram to the socket that NOTIFY_SOCKET names, a path or "@" and an abstract name. Blocks for a
 * second at most.
 *
 * @return false when there is nobody to report to or the datagram could not be sent.
 */
bool notify(const char* state);

/**
 * How often the service manager's watchdog expects "WATCHDOG=1" at least: WATCHDOG_USEC for the process
 * WATCHDOG_PID, or for any without the latter. What is no number of microseconds is logged.
 *
 * @return 0 when it expects none.
 */
std::chrono::microseconds watchdog_period();

} // namespace orvan_service

#endif
