#ifndef ORVAN_WEB_NETWORK_H
#define ORVAN_WEB_NETWORK_H

#include <string>
#include <vector>

#include <dataorvan.h>

namespace orvan_web {

/** The instrument's network, as its clients see it. Texts are empty if unknown. */
struct Network {
    std::vector<std::string>
        addresses;       /**< of the LAN's interface, those of IPv4 first; no link-local ones */
    std::string address; /**< of IPv4 */
    std::string mask;
    std::string gateway;
    std::string mac; /**< "02:00:0a:00:00:02" */
    std::vector<std::string> dns;
    bool dhcp = false;

    bool operator==(const Network&) const = default;
};

/**
 * The network as it is now.
 *
 * @param record of any channel: the service keeps its settings there; null if it has none. The addresses are
 *               those that the interface has at the moment, which without a record is the first that leads
 *               out of this machine.
 */
Network read_network(const ORVAN_CONFIG* record);

} // namespace orvan_web

#endif
