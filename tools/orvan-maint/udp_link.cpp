#include "udp_link.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <arpa/inet.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

#include "failure.h"

using orvan_common::UniqueFd;

namespace orvan_maint {

using HaldeElec::Orvan::FRMHEADERLEN;

namespace {

UniqueFd udp_socket()
{
    UniqueFd fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!fd) {
        throw Failure(kExitNoAnswer, std::string("no socket: ") + std::strerror(errno));
    }
    return fd;
}

int milliseconds_until(Clock::time_point deadline)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    return static_cast<int>(std::clamp<int64_t>(left.count(), 0, 3'600'000));
}

} // namespace

UdpLink::UdpLink(const sockaddr_in& peer, int stop) : m_socket(udp_socket()), m_stop(stop)
{
    if (::connect(m_socket.get(), reinterpret_cast<const sockaddr*>(&peer), sizeof peer) != 0) {
        throw Failure(kExitNoAnswer, address_text(peer) + " cannot be reached: " + std::strerror(errno));
    }
}

UdpLink::UdpLink(std::vector<Interface> interfaces, int port, int stop)
    : m_socket(udp_socket()), m_interfaces(std::move(interfaces)), m_port(port), m_stop(stop)
{
    const int on = 1;
    ::setsockopt(m_socket.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
}

void UdpLink::send(std::span<const uint8_t> datagram)
{
    if (m_interfaces.empty()) {
        // An error of the previous datagram is reported here first; then this one has not been sent.
        if (::send(m_socket.get(), datagram.data(), datagram.size(), 0) < 0) {
            m_error = errno;
            ::send(m_socket.get(), datagram.data(), datagram.size(), 0);
        }
        return;
    }
    for (const Interface& interface : m_interfaces) {
        broadcast(datagram, interface);
    }
}

// To all hosts on the cable, including those with an address in another network.
void UdpLink::broadcast(std::span<const uint8_t> datagram, const Interface& interface)
{
    sockaddr_in everybody{};
    everybody.sin_family = AF_INET;
    everybody.sin_port = htons(static_cast<uint16_t>(m_port));
    everybody.sin_addr.s_addr = htonl(INADDR_BROADCAST);
    iovec part{const_cast<uint8_t*>(datagram.data()), datagram.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(in_pktinfo))] = {};
    msghdr message{};
    message.msg_name = &everybody;
    message.msg_namelen = sizeof everybody;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = IPPROTO_IP;
    header->cmsg_type = IP_PKTINFO;
    header->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
    in_pktinfo out{};
    out.ipi_ifindex = interface.index;
    std::memcpy(CMSG_DATA(header), &out, sizeof out);
    if (::sendmsg(m_socket.get(), &message, 0) < 0) {
        m_error = errno;
    }
}

bool UdpLink::receive(Received& received, Clock::time_point deadline)
{
    for (;;) {
        pollfd waiting[] = {{m_socket.get(), POLLIN, 0}, {m_stop, POLLIN, 0}};
        const int ready = ::poll(waiting, 2, milliseconds_until(deadline));
        if (ready > 0 && waiting[1].revents != 0) {
            throw Interrupted();
        }
        if (ready == 0) {
            return false;
        }
        received = Received{};
        socklen_t size = sizeof received.from;
        const ssize_t count =
            ::recvfrom(m_socket.get(), &received.frame, sizeof received.frame, MSG_DONTWAIT | MSG_TRUNC,
                       reinterpret_cast<sockaddr*>(&received.from), &size);
        if (count < 0) {
            if (errno != EAGAIN && errno != EINTR) {
                m_error = errno;
            }
        } else if (static_cast<size_t>(count) >= FRMHEADERLEN) {
            received.length = static_cast<size_t>(count);
            return true;
        }
        if (Clock::now() >= deadline) {
            return false;
        }
    }
}

std::string UdpLink::problem() const
{
    if (m_error == 0) {
        return {};
    }
    return m_error == ECONNREFUSED ? " (nothing serves that port there)"
                                   : std::string(" (") + std::strerror(m_error) + ")";
}

sockaddr_in resolve(const std::string& host, int port)
{
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    const int error = ::getaddrinfo(host.c_str(), nullptr, &hints, &found);
    if (error != 0 || found == nullptr) {
        throw Failure(kExitBadOptions, "there is no address " + printable(host) + ": " +
                                           (error != 0 ? ::gai_strerror(error) : "it has no IPv4 address"));
    }
    sockaddr_in address{};
    std::memcpy(&address, found->ai_addr, sizeof address);
    ::freeaddrinfo(found);
    address.sin_port = htons(static_cast<uint16_t>(port));
    return address;
}

std::string address_text(const sockaddr_in& address)
{
    char text[INET_ADDRSTRLEN];
    return ::inet_ntop(AF_INET, &address.sin_addr, text, sizeof text) != nullptr ? text : "";
}

} // namespace orvan_maint
