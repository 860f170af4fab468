#include "support/loopback.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <stdexcept>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace orvan_test {
namespace {

sockaddr_in socket_address(const std::string& address, int port)
{
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(static_cast<uint16_t>(port));
    if (::inet_pton(AF_INET, address.c_str(), &result.sin_addr) != 1 ||
        (ntohl(result.sin_addr.s_addr) >> 24) != 127) {
        throw std::runtime_error("not a loopback address: " + address);
    }
    return result;
}

// Reads until `complete` returns true; `room` is the size of the next read.
template <typename Complete, typename Room>
std::string read_while(int fd, std::chrono::milliseconds bound, Complete complete, Room room)
{
    const auto deadline = std::chrono::steady_clock::now() + bound;
    std::string text;
    char piece[8192];
    while (!complete(text)) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd waited{fd, POLLIN, 0};
        if (left.count() <= 0 || ::poll(&waited, 1, static_cast<int>(left.count())) <= 0) {
            break;
        }
        const ssize_t n = recv(fd, piece, std::min(sizeof piece, room(text)), 0);
        if (n <= 0) {
            break;
        }
        text.append(piece, static_cast<size_t>(n));
    }
    return text;
}

} // namespace

int listen_on_loopback(const std::string& address, int backlog)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in own = socket_address(address, 0);
    if (fd < 0 || ::bind(fd, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0 ||
        ::listen(fd, backlog) != 0) {
        ::close(fd);
        throw std::runtime_error("cannot listen on " + address);
    }
    return fd;
}

int local_port(int fd)
{
    sockaddr_in own{};
    socklen_t size = sizeof own;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&own), &size);
    return ntohs(own.sin_port);
}

int connect_to_loopback(const std::string& address, int port, const std::string& from)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return -1;
    }
    if (!from.empty()) {
        const sockaddr_in own = socket_address(from, 0);
        if (::bind(fd, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0) {
            ::close(fd);
            return -1;
        }
    }
    const sockaddr_in peer = socket_address(address, port);
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) != 0) {
        const int reason = errno;
        ::close(fd);
        errno = reason;
        return -1;
    }
    return fd;
}

std::string read_until(int fd, const std::string& end, std::chrono::milliseconds bound)
{
    // One byte at a time, so that what follows `end` stays in the socket.
    return read_while(
        fd, bound, [&](const std::string& text) { return text.ends_with(end); },
        [](const std::string&) { return size_t{1}; });
}

std::string read_exactly(int fd, size_t size, std::chrono::milliseconds bound)
{
    return read_while(
        fd, bound, [&](const std::string& text) { return text.size() >= size; },
        [&](const std::string& text) { return size - text.size(); });
}

std::string read_ready(int fd)
{
    std::string text;
    char piece[8192];
    ssize_t n;
    while ((n = ::recv(fd, piece, sizeof piece, MSG_DONTWAIT)) > 0) {
        text.append(piece, static_cast<size_t>(n));
    }
    return text;
}

size_t open_descriptors()
{
    // The directory's own descriptor is there in every count.
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(all), end(all)));
}

TcpPair::TcpPair(const std::string& client_address)
{
    const int listener = listen_on_loopback();
    m_client = connect_to_loopback("127.0.0.1", local_port(listener), client_address);
    m_server = m_client < 0 ? -1 : ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    ::close(listener);
    if (m_server < 0) {
        close_client();
        throw std::runtime_error("cannot connect on the loopback");
    }
    const int on = 1;
    ::setsockopt(m_client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

TcpPair::~TcpPair()
{
    close_client();
    ::close(m_server);
}

void TcpPair::close_client()
{
    if (m_client >= 0) {
        ::close(m_client);
    }
    m_client = -1;
}

} // namespace orvan_test
