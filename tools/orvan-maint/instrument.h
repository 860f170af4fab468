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

/** What an instrument tells of itself; the rows show its state at its start. */
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
    std::chrono::milliseconds wait{3000}; /**< for answers */
};

/** Everyone within reach, each once: an instrument is told by its hardware address, and one that has none by
 *  where it answers. With `reach.mac` only that one.
 *  @param problem gets what the network complained of, as Link::problem() tells it */
std::vector<Identity> discover(const Reach& reach, int stop, std::string& problem);

/** The answer to an identification of the other end. */
std::optional<Identity> identify(Link& link, const hwaddr_t& mac, std::chrono::milliseconds wait);

/** An instrument with a link to it. */
struct Target {
    Identity identity;
    std::unique_ptr<UdpLink> link;
};

/** The one that is meant; throws Failure when there is none, or more than one. */
Target choose_instrument(const Reach& reach, int stop);

/** A link to `reach.address`, without a word to what is there. */
std::unique_ptr<UdpLink> link_to_address(const Reach& reach, int stop);

/** "OVX3654B 241107 at 10.0.0.2 (02:00:0a:00:00:02)" */
std::string name_of(const Identity& identity);

/** Nobody within reach answers, and why that may be. */
std::string no_answer(const Reach& reach, const std::string& problem);

} // namespace orvan_maint

#endif
