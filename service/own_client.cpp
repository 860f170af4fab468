#include "own_client.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

using orvan_common::UniqueFd;

namespace orvan_service {

OwnClient::OwnClient(std::span<const UniqueFd> listeners)
{
    for (const UniqueFd& listener : listeners) {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        if (::getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0 ||
            address.sin_family != AF_INET) {
            continue;
        }
        if (address.sin_addr.s_addr == htonl(INADDR_ANY)) {
            address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        }
        m_addresses.push_back(address);
    }
}

// An inherited listener may belong to another network namespace, where we cannot reach its address.
UniqueFd OwnClient::connect_to_server() const
{
    for (const sockaddr_in& address : m_addresses) {
        UniqueFd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (socket &&
            ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
            return socket;
        }
    }
    return {};
}

std::string OwnClient::ask(const std::string& message, std::chrono::milliseconds patience) const
{
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + patience;
    const UniqueFd socket = connect_to_server();
    const std::string line = message + '\n';
    std::string reply;
    if (!socket || ::send(socket.get(), line.data(), line.size(), MSG_NOSIGNAL) < 0) {
        return reply;
    }
    while (!reply.ends_with('\n')) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd waiting{socket.get(), POLLIN, 0};
        const int ready = ::poll(&waiting, 1, static_cast<int>(std::max<int64_t>(left, 0)));
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        char bytes[512];
        const ssize_t count = ready > 0 ? ::recv(socket.get(), bytes, sizeof bytes, 0) : 0;
        if (count <= 0) {
            break;
        }
        reply.append(bytes, static_cast<size_t>(count));
    }
    reply.erase(reply.find_last_not_of("\r\n") + 1);
    return reply;
}

} // namespace orvan_service
