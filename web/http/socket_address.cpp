#include "http/socket_address.h"

#include <arpa/inet.h>
#include <netinet/in.h>

namespace orvan_web {

std::string address_text(const sockaddr& address)
{
    char text[INET6_ADDRSTRLEN] = "";
    if (address.sa_family == AF_INET) {
        ::inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in&>(address).sin_addr, text, sizeof text);
    } else if (address.sa_family == AF_INET6) {
        const in6_addr& host = reinterpret_cast<const sockaddr_in6&>(address).sin6_addr;
        if (IN6_IS_ADDR_V4MAPPED(&host)) {
            ::inet_ntop(AF_INET, &host.s6_addr[12], text, sizeof text);
        } else {
            ::inet_ntop(AF_INET6, &host, text, sizeof text);
        }
    }
    return text;
}

std::string local_address_text(int socket)
{
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length);
    return address_text(reinterpret_cast<sockaddr&>(address));
}

} // namespace orvan_web
