#include "socket_name.h"

#include <cerrno>
#include <system_error>

#include <arpa/inet.h>
#include <sys/socket.h>

namespace sim_module {

void throw_errno(const char* what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

sockaddr_in socket_name(const std::string& address, uint16_t port)
{
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(port);
    if (::inet_pton(AF_INET, address.c_str(), &name.sin_addr) != 1) {
        errno = EINVAL;
        throw_errno(address.c_str());
    }
    return name;
}

uint16_t bind_socket(int fd, const std::string& address, uint16_t port)
{
    sockaddr_in name = socket_name(address, port);
    socklen_t size = sizeof name;
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&name), size) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&name), &size) != 0) {
        throw_errno((address + ":" + std::to_string(port)).c_str());
    }
    return ntohs(name.sin_port);
}

} // namespace sim_module
