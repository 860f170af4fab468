#include "interfaces.h"

#include <algorithm>

#include <ifaddrs.h>
#include <net/if.h>
#include <sys/socket.h>

#include "failure.h"
#include "frame.h"

namespace orvan_maint {
namespace {

std::vector<Interface> usable_interfaces()
{
    std::vector<Interface> found;
    ifaddrs* all = nullptr;
    if (::getifaddrs(&all) != 0) {
        return found;
    }
    for (const ifaddrs* entry = all; entry != nullptr; entry = entry->ifa_next) {
        constexpr unsigned kNeeded = IFF_UP | IFF_BROADCAST;
        const bool usable = entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET &&
                            (entry->ifa_flags & kNeeded) == kNeeded;
        // An interface with several addresses is listed once for each.
        const bool known = std::any_of(found.begin(), found.end(), [entry](const Interface& interface) {
            return interface.name == entry->ifa_name;
        });
        if (usable && !known) {
            found.push_back({entry->ifa_name, static_cast<int>(::if_nametoindex(entry->ifa_name))});
        }
    }
    ::freeifaddrs(all);
    return found;
}

} // namespace

std::vector<Interface> find_interfaces(const std::string& name)
{
    std::vector<Interface> usable = usable_interfaces();
    if (usable.empty()) {
        throw Failure(kExitBadOptions, "no network interface is up and has an IPv4 address; "
                                       "use --address for an instrument elsewhere");
    }
    if (name.empty()) {
        return usable;
    }
    std::string names;
    for (const Interface& interface : usable) {
        if (interface.name == name) {
            return {interface};
        }
        names += " " + interface.name;
    }
    throw Failure(kExitBadOptions, (::if_nametoindex(name.c_str()) != 0
                                        ? "interface " + printable(name) +
                                              " is down, has no IPv4 address or takes no broadcasts"
                                        : "there is no interface " + printable(name)) +
                                       "; usable:" + names);
}

} // namespace orvan_maint
