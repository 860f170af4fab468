#include "unix_socket.h"

#include <cerrno>
#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>

namespace orvan_web {

orvan_common::UniqueFd connect_unix(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return {};
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    orvan_common::UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (fd && ::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        fd.reset();
    }
    return fd;
}

} // namespace orvan_web
