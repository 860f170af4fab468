#include "network.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <sys/socket.h>

#include "utf8.h"

namespace orvan_web {
namespace {

struct FreeAddresses {
    void operator()(ifaddrs* list) const { ::freeifaddrs(list); }
};
using Addresses = std::unique_ptr<ifaddrs, FreeAddresses>;

Addresses all_addresses()
{
    ifaddrs* list = nullptr;
    ::getifaddrs(&list);
    return Addresses(list);
}

template <size_t kSize>
std::string text(const char (&field)[kSize])
{
    return as_utf8(std::string_view(field, ::strnlen(field, kSize)));
}

bool leads_out(const ifaddrs& entry)
{
    return (entry.ifa_flags & IFF_UP) != 0 && (entry.ifa_flags & IFF_LOOPBACK) == 0 &&
           entry.ifa_addr != nullptr;
}

std::string first_interface(const ifaddrs* list)
{
    for (; list != nullptr; list = list->ifa_next) {
        if (leads_out(*list) && list->ifa_addr->sa_family == AF_INET) {
            return list->ifa_name;
        }
    }
    return {};
}

std::string numeric(const sockaddr* address)
{
    char buffer[INET6_ADDRSTRLEN] = {};
    if (address->sa_family == AF_INET) {
        ::inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(address)->sin_addr, buffer, sizeof buffer);
    } else {
        const auto& v6 = reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr;
        if (!IN6_IS_ADDR_LINKLOCAL(&v6)) {
            ::inet_ntop(AF_INET6, &v6, buffer, sizeof buffer);
        }
    }
    return buffer;
}

std::string mac_of(const sockaddr* address)
{
    const auto& link = *reinterpret_cast<const sockaddr_ll*>(address);
    char buffer[18];
    std::snprintf(buffer, sizeof buffer, "%02x:%02x:%02x:%02x:%02x:%02x", link.sll_addr[0], link.sll_addr[1],
                  link.sll_addr[2], link.sll_addr[3], link.sll_addr[4], link.sll_addr[5]);
    return buffer;
}

} // namespace

Network read_network(const ORVAN_CONFIG* record)
{
    Network network;
    std::string interface;
    if (record != nullptr) {
        const OC_SYSTEM_DATA& system = record->SYSTEM;
        interface = text(system.Interface);
        network.mask = text(system.Mask);
        network.gateway = text(system.GATeway);
        network.mac = text(system.MACaddr);
        network.dhcp = system.DHCP != Off;
        for (const std::string& server : {text(system.Dns1), text(system.Dns2)}) {
            if (!server.empty()) {
                network.dns.push_back(server);
            }
        }
    }
    const Addresses list = all_addresses();
    if (interface.empty()) {
        interface = first_interface(list.get());
    }
    std::vector<std::string> v6;
    for (const ifaddrs* entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
        if (!leads_out(*entry) || interface != entry->ifa_name) {
            continue;
        }
        switch (entry->ifa_addr->sa_family) {
        case AF_INET:
            network.addresses.push_back(numeric(entry->ifa_addr));
            if (network.mask.empty() && entry->ifa_netmask != nullptr) {
                network.mask = numeric(entry->ifa_netmask);
            }
            break;
        case AF_INET6:
            v6.push_back(numeric(entry->ifa_addr));
            break;
        case AF_PACKET:
            network.mac = network.mac.empty() ? mac_of(entry->ifa_addr) : network.mac;
            break;
        default:
            break;
        }
    }
    network.address = network.addresses.empty() ? "" : network.addresses.front();
    std::copy_if(v6.begin(), v6.end(), std::back_inserter(network.addresses),
                 [](const std::string& address) { return !address.empty(); });
    return network;
}

} // namespace orvan_web
