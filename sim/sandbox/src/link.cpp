#include "orvan_sandbox/link.h"

#include <cstring>
#include <thread>

#include <net/if.h>
#include <sys/ioctl.h>

namespace orvan_sandbox {

namespace {

constexpr std::chrono::milliseconds kStep{2};

bool runs(int socket, const std::string& interface)
{
    ifreq request = {};
    std::strncpy(request.ifr_name, interface.c_str(), IFNAMSIZ - 1);
    return ::ioctl(socket, SIOCGIFFLAGS, &request) == 0 && (request.ifr_flags & IFF_RUNNING) != 0;
}

} // namespace

bool wait_for_link(int socket, const std::string& interface, bool up)
{
    const auto deadline = std::chrono::steady_clock::now() + kLinkPatience;
    while (runs(socket, interface) != up) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(kStep);
    }
    return true;
}

} // namespace orvan_sandbox
