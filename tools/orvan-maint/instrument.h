/**
 * Instruments: who they are, and which one is meant.
 */
#ifndef ORVAN_MAINT_INSTRUMENT_H
#define ORVAN_MAINT_INSTRUMENT_H

#include <memory>
#include <optional>
#include <vector>

#include "rows.h"
#include "udp_link.h"

namespace orvan_maint {

/** What an instrument reports of itself; the rows show its state at its start. */
struct Identity {
    hwaddr_t mac{};
    sockaddr_in address{}; /**< where it answers */
    Rows rows;
};

/** How instruments are reached. */
struct Reach {
    std::string interface; /**< empty for all */
    std::string address;   /**< empty to look for instruments by broadcast */
    std::string mac;       /**< empty for any */
    int port = HaldeElec::Orvan::PORTUDP;
    std::chrono::milliseconds wait{3000}; /**< how long to wait for replies */
};

/** All instruments within reach, each once: identified by hardware address or, without one, by IP address.
 * With `reach.mac` only that one.
 *  @param problem set to the network's last error, as from Link::problem() */
std::vector<Identity> discover(const Reach& reach, int stop, std::string& problem);

/** The answer to an identification of the other end. */
std::optional<Identity> identify(Link& link, const hwaddr_t& mac, std::chrono::milliseconds wait);

/** An instrument with a link to it. */
struct Target {
    Identity identity;
    std::unique_ptr<UdpLink> link;
};

/** The selected one; throws Failure when there is none, or more than one. */
Target choose_instrument(const Reach& reach, int stop);

/** A link to `reach.address`; sends nothing. */
std::unique_ptr<UdpLink> link_to_address(const Reach& reach, int stop);

/** "OVX3654B 241107 at 10.0.0.2 (02:00:0a:00:00:02)" */
std::string name_of(const Identity& identity);

/** A message that no instrument answers, with possible reasons. */
std::string no_answer(const Reach& reach, const std::string& problem);

} // namespace orvan_maint

#endif
