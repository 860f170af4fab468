/** Helpers for the module's sockets. */
#ifndef ORVAN_SIM_MODULE_SOCKET_NAME_H
#define ORVAN_SIM_MODULE_SOCKET_NAME_H

#include <cstdint>
#include <string>

#include <netinet/in.h>

namespace sim_module {

/** Throws `errno` as std::system_error. */
[[noreturn]] void throw_errno(const char* what);

/** @param address dotted IPv4; std::system_error for anything else */
sockaddr_in socket_name(const std::string& address, uint16_t port);

/** Binds the socket and returns its port. Throws std::system_error. */
uint16_t bind_socket(int fd, const std::string& address, uint16_t port);

} // namespace sim_module

#endif
