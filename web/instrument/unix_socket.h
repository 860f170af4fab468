#ifndef ORVAN_WEB_UNIX_SOCKET_H
#define ORVAN_WEB_UNIX_SOCKET_H

#include <string>

#include <unique_fd.h>

namespace orvan_web {

/** Connects to a stream socket, without blocking then and later. Empty, with errno, if nobody listens there
 * or too many wait already. */
orvan_common::UniqueFd connect_unix(const std::string& path);

} // namespace orvan_web

#endif
