/**
 * Listening TCP sockets, opened or passed by the parent process, and the addresses of sockets.
 */
#ifndef ORVAN_PROCESS_LISTENING_H
#define ORVAN_PROCESS_LISTENING_H

#include <cstdint>
#include <string>
#include <vector>

#include <unique_fd.h>

namespace orvan_common {

/**
 * Opens listening TCP sockets (non-blocking, close-on-exec).
 *
 * With an empty `address`: one socket for all IPv4 addresses and one for all IPv6 addresses; without the
 * latter if the machine has no IPv6. They are separate because a client counts as the instrument's own by its
 * IPv4 peer address, which a dual-stack socket would hide.
 *
 * @param address a numeric IPv4 or IPv6 address, or empty.
 * @param port 0 selects a free one, the same for both.
 * @throws std::runtime_error with a text for the user.
 */
std::vector<UniqueFd> open_listeners(const std::string& address, uint16_t port);

/** A socket that the parent process passed. */
struct InheritedSocket {
    std::string name; /**< of LISTEN_FDNAMES; empty if that is not set */
    UniqueFd socket;
};

/**
 * Takes the listening sockets that the parent process passed as descriptors 3 and up, as counted by
 * LISTEN_FDS for the process LISTEN_PID, and clears these variables so that children do not inherit them.
 * LISTEN_FDNAMES has their names, separated by colons.
 *
 * @return empty if none were passed to this process.
 * @throws std::runtime_error if the variables are invalid or a descriptor is not a listening socket.
 */
std::vector<InheritedSocket> inherited_sockets();

/** Local port of a TCP socket. */
uint16_t port_of(int socket);

/** "127.0.0.1:5025" or "[::1]:5025": the address of a listening socket. */
std::string local_address(int socket);

/** The peer address of a TCP connection, in the same form; "?" when no longer known. */
std::string peer_address(int socket);

} // namespace orvan_common

#endif
