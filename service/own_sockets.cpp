#include "own_sockets.h"

#include <cstdlib>
#include <memory>

#include <dirent.h>
#include <sys/socket.h>

namespace orvan_service {
namespace {

using NameOf = int (*)(int, sockaddr*, socklen_t*);

// Empty for a descriptor without an address, or with one that is not TCP's.
std::string name(NameOf name_of, int socket)
{
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    const bool has_name = name_of(socket, reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
                          (address.ss_family == AF_INET || address.ss_family == AF_INET6);
    return has_name ? std::string(reinterpret_cast<const char*>(&address), size) : std::string();
}

} // namespace

OwnSockets::OwnSockets()
{
    const std::unique_ptr<DIR, int (*)(DIR*)> descriptors(::opendir("/proc/self/fd"), ::closedir);
    if (!descriptors) {
        return;
    }
    while (const dirent* const entry = ::readdir(descriptors.get())) {
        const int socket = std::atoi(entry->d_name);
        if (std::string peer = name(::getpeername, socket); !peer.empty()) {
            m_names.emplace(name(::getsockname, socket), std::move(peer));
        }
    }
}

bool OwnSockets::at_other_end_of(int socket) const
{
    return m_names.contains({name(::getpeername, socket), name(::getsockname, socket)});
}

} // namespace orvan_service
