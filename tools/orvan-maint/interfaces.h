#ifndef ORVAN_MAINT_INTERFACES_H
#define ORVAN_MAINT_INTERFACES_H

#include <string>
#include <vector>

namespace orvan_maint {

/** A network interface to search for instruments: up, with broadcast and an IPv4 address. */
struct Interface {
    std::string name;
    int index;
};

/**
 * The interface of this name, or all of them for an empty one. Throws Failure, with the list of usable ones,
 * when there is no such interface or none at all.
 */
std::vector<Interface> find_interfaces(const std::string& name);

} // namespace orvan_maint

#endif
