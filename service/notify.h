#ifndef ORVAN_SERVICE_NOTIFY_H
#define ORVAN_SERVICE_NOTIFY_H

namespace orvan_service {

/**
 * Tells the service manager a state, "READY=1" or "STOPPING=1": one datagram to the socket that
 * NOTIFY_SOCKET names, a path or "@" and an abstract name.
 *
 * @return false when there is nobody to tell or the datagram could not be sent.
 */
bool notify(const char* state);

} // namespace orvan_service

#endif
