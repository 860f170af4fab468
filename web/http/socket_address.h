#ifndef ORVAN_WEB_SOCKET_ADDRESS_H
#define ORVAN_WEB_SOCKET_ADDRESS_H

#include <string>

#include <sys/socket.h>

namespace orvan_web {

/** An address without port and without scope, "10.0.0.2" or "fe80::1"; an IPv4 address in IPv6 as IPv4. Empty
 * for other families. */
std::string address_text(const sockaddr& address);

/** The same of the local end of a connection. */
std::string local_address_text(int socket);

} // namespace orvan_web

#endif
