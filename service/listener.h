#ifndef ORVAN_SERVICE_LISTENER_H
#define ORVAN_SERVICE_LISTENER_H

#include <cstdint>
#include <string>
#include <vector>

#include "process/listening.h"
#include <unique_fd.h>

namespace orvan_service {

using orvan_common::local_address;
using orvan_common::open_listeners;
using orvan_common::peer_address;
using orvan_common::port_of;

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
 * As orvan_common::inherited_sockets(): those called "hislip" are for HiSLIP, all others raw.
 *
 * @throws std::runtime_error if the variables are invalid or a descriptor is not a listening socket.
 */
Listeners inherited_listeners();

/** Discards received data, as closing with unread bytes would send a reset, which may overtake the last
 *  reply. */
void discard_input(int socket);

} // namespace orvan_service

#endif
