#ifndef ORVAN_SERVICE_NOTIFY_H
#define ORVAN_SERVICE_NOTIFY_H

#include <chrono>
#include <string>

namespace orvan_service {

/**
 * Reports a state to the service manager, "READY=1", "STOPPING=1" or "WATCHDOG=1": one datagram to the socket
 * named by NOTIFY_SOCKET, a path or "@" and an abstract name. Blocks for at most a second.
 *
 * @return false if NOTIFY_SOCKET is not set or the datagram could not be sent.
 */
bool notify(const char* state);

/** What the status line that the service manager shows is made of. */
enum class StatusPart { kHang, kRemote };

/** Changes a part of the status line and reports the line, its parts joined by "; ", as notify() does. Any
 *  thread.
 *  @param text empty: nothing to say */
void notify_status(StatusPart part, const std::string& text);

/**
 * The longest interval at which the service manager's watchdog expects "WATCHDOG=1": WATCHDOG_USEC for the
 * process WATCHDOG_PID, or for any if that is not set. An invalid value is logged.
 *
 * @return 0 if it expects none.
 */
std::chrono::microseconds watchdog_period();

} // namespace orvan_service

#endif
