#ifndef ORVAN_SERVICE_LISTENER_H
#define ORVAN_SERVICE_LISTENER_H

#include <cstdint>
#include <string>
#include <vector>

#include <unique_fd.h>

namespace orvan_service {

/**
 * Opens listening TCP sockets (non-blocking, close-on-exec).
 *
 * With an empty `address`: one socket for all IPv4 addresses and one for all IPv6 addresses; without the
 * second when the machine has no IPv6. They are two, and not one for both, because a client counts as the
 * instrument's own by its IPv4 peer address, which a socket for both families would hide.
 *
 * @param address an IPv4 or IPv6 address in numbers, or empty.
 * @param port 0 takes a free one, the same for both.
 * @throws std::runtime_error with a text for the user.
 */
std::vector<UniqueFd> open_listeners(const std::string& address, uint16_t port);

/** The port of SCPI on a raw socket, and that of an instrument which has none that can be used. */
inline constexpr uint16_t kUsualPort = 5025;

/**
 * As open_listeners with the port of the settings. When that is 0 or cannot be had, which is logged, takes
 * kUsualPort: a client that has set it must still reach the instrument to set another one.
 *
 * @throws std::runtime_error with a text for the user when that one cannot be had either.
 */
std::vector<UniqueFd> open_listeners_of_settings(const std::string& address, uint16_t port);

/**
 * Takes the listening sockets that the parent process passed as descriptors 3 and up, as counted by
 * LISTEN_FDS for the process LISTEN_PID, and clears these variables, which are not for our children.
 *
 * @return empty when none were passed to this process.
 * @throws std::runtime_error when the variables make no sense or a descriptor is not a listening socket.
 */
std::vector<UniqueFd> inherited_listeners();

/** Port that a TCP socket is bound to. */
uint16_t port_of(int socket);

/** "127.0.0.1:5025" or "[::1]:5025": where a listening socket can be reached. */
std::string local_address(int socket);

/** Where the other end of a TCP connection is, in the same form; "?" when it is not known any more. */
std::string peer_address(int socket);

/** Drops what a connection has received, as closing with bytes unread would send a reset, which may overtake
 *  the last reply. */
void discard_input(int socket);

} // namespace orvan_service

#endif
