#ifndef ORVAN_SIM_LAUNCHER_SOCKETS_H
#define ORVAN_SIM_LAUNCHER_SOCKETS_H

#include <filesystem>
#include <string>

#include <unique_fd.h>

namespace orvan_launcher {

/** Each returns an open descriptor with close-on-exec, or a negative one with errno set. */

/** A listening TCP socket. \param port  0 takes a free one. */
int listen_tcp(const std::string& address, int port);

/** A bound UDP socket, and a connected one, which exchanges datagrams with one peer only. */
int bind_udp(const std::string& address, int port);
int connect_udp(const std::string& address, int port);

/** Port that a socket is bound to; 0 if unbound. */
int port_of(int fd);

/** IPv4 address of an interface in the socket's network namespace; empty while it has none. */
std::string interface_address(int fd, const std::string& interface);

/** Sockets at a path; an existing file is replaced. The path must be shorter than 108 bytes. */
int listen_unix(const std::filesystem::path& path);
int bind_unix_datagrams(const std::filesystem::path& path);
int connect_unix(const std::filesystem::path& path);

/**
 * Sends a text and reads until the peer closes, until `end` has arrived, or for `seconds`; at most 4 MB.
 */
std::string exchange(int fd, const std::string& request, const std::string& end, int seconds);

} // namespace orvan_launcher

#endif
