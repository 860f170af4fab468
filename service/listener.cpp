#include "listener.h"

#include <stdexcept>
#include <string_view>

#include <sys/socket.h>
#include <syslog.h>

using orvan_common::UniqueFd;

namespace orvan_service {
namespace {

constexpr std::string_view kHislipName = "hislip";

} // namespace

std::vector<UniqueFd> open_listeners_of_settings(const std::string& address, uint16_t port)
{
    std::string reason = "is not set";
    if (port != 0) {
        try {
            return open_listeners(address, port);
        } catch (const std::runtime_error& error) {
            reason = std::string("cannot be used: ") + error.what();
        }
    }
    ::syslog(LOG_ERR, "SCPI port %u of the settings %s; using %u instead", port, reason.c_str(), kUsualPort);
    return open_listeners(address, kUsualPort);
}

std::vector<UniqueFd> open_usual_hislip_listeners(const std::string& address)
{
    try {
        return open_listeners(address, kHislipPort);
    } catch (const std::runtime_error& error) {
        ::syslog(LOG_WARNING, "no HiSLIP: %s", error.what());
        return {};
    }
}

Listeners inherited_listeners()
{
    Listeners listeners;
    for (auto& [name, socket] : orvan_common::inherited_sockets()) {
        (name == kHislipName ? listeners.hislip : listeners.raw).push_back(std::move(socket));
    }
    return listeners;
}

void discard_input(int socket)
{
    constexpr size_t kAll = 16 << 20;
    ::recv(socket, nullptr, kAll, MSG_TRUNC | MSG_DONTWAIT);
}

} // namespace orvan_service
