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
 * latter if the machine has no IPv6. They are separate because a client counts as the instrument's own by its
 * IPv4 peer address, which a dual-stack socket would hide.
 *
 * @param address a numeric IPv4 or IPv6 address, or empty.
 * @param port 0 selects a free one, the same for both.
 * @throws std::runtime_error with a text for the user.
 */
std::vector<orvan_common::UniqueFd> open_listeners(const std::string& address, uint16_t port);

/** The standard port of SCPI on a raw socket, used if the port of the settings is unusable. */
inline constexpr uint16_t kUsualPort = 5025;

/**
 * As open_listeners, with the port of the settings. If that is 0 or cannot be used, which is logged, listens
 * on kUsualPort: the client that set it must still reach the instrument to set another.
 *
 * @throws std::runtime_error with a text for the user if that port cannot be used either.
 */
std::vector<orvan_common::UniqueFd> open_listeners_of_settings(const std::string& address, uint16_t port);

/** The standard port of HiSLIP (IVI-6.1). */
inline constexpr uint16_t kHislipPort = 4880;

/**
 * As open_listeners, with kHislipPort. Returns none if that cannot be used, which is logged: another program
 * may own it, and an instrument without HiSLIP still has its other protocols.
 */
std::vector<orvan_common::UniqueFd> open_usual_hislip_listeners(const std::string& address);

/** Listening sockets by the protocol that is spoken on them. */
struct Listeners {
    std::vector<orvan_common::UniqueFd> raw;
    std::vector<orvan_common::UniqueFd> hislip;
};

/**
 * Takes the listening sockets that the parent process passed as descriptors 3 and up, as counted by
 * LISTEN_FDS for the process LISTEN_PID, and clears these variables so that children do not inherit them.
 * Those that LISTEN_FDNAMES, names separated by colons, calls "hislip" are for HiSLIP, all others raw.
 *
 * @return empty if none were passed to this process.
 * @throws std::runtime_error if the variables are invalid or a descriptor is not a listening socket.
 */
Listeners inherited_listeners();

/** Local port of a TCP socket. */
uint16_t port_of(int socket);

/** "127.0.0.1:5025" or "[::1]:5025": the address of a listening socket. */
std::string local_address(int socket);

/** The peer address of a TCP connection, in the same form; "?" when no longer known. */
std::string peer_address(int socket);

/** Discards received data, as closing with unread bytes would send a reset, which may overtake the last
 *  reply. */
void discard_input(int socket);

} // namespace orvan_service

#endif
