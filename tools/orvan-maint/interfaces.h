#ifndef ORVAN_MAINT_INTERFACES_H
#define ORVAN_MAINT_INTERFACES_H

#include <string>
#include <vector>

namespace orvan_maint {

/** A network interface that instruments can be looked for on: up, with broadcasts and an IPv4 address. */
struct Interface {
    std::string name;
    int index;
};

/**
 * The interface of this name, or all of them for an empty one. Throws Failure, which tells what there is,
 * when the name is none of them or there is none.
 */
std::vector<Interface> find_interfaces(const std::string& name);

} // namespace orvan_maint

#endif
