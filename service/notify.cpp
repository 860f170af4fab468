#include "notify.h"

#include <unique_fd.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace orvan_service {

bool notify(const char* state)
{
    const char* const name = std::getenv("NOTIFY_SOCKET");
    if (!name || (name[0] != '/' && name[0] != '@')) {
        return false;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const size_t length = std::strlen(name);
    if (length >= sizeof address.sun_path) {
        ::syslog(LOG_WARNING, "NOTIFY_SOCKET is too long: %s", name);
        return false;
    }
    std::memcpy(address.sun_path, name, length);
    if (name[0] == '@') {
        address.sun_path[0] = '\0';
    }
    const UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
    if (::sendto(socket.get(), state, std::strlen(state), MSG_NOSIGNAL, reinterpret_cast<sockaddr*>(&address),
                 size) < 0) {
        ::syslog(LOG_WARNING, "notify %s: %s", name, std::strerror(errno));
        return false;
    }
    return true;
}

} // namespace orvan_service
