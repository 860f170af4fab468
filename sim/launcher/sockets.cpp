#include "sockets.h"

#include <cerrno>
#include <chrono>
#include <cstring>

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>

using orvan_common::UniqueFd;

namespace orvan_launcher {

namespace {

constexpr int kBacklog = 64;
constexpr size_t kMostReply = size_t{4} << 20;

sockaddr_in inet_address(const std::string& address, int port)
{
    sockaddr_in result = {};
    result.sin_family = AF_INET;
    result.sin_port = htons(static_cast<uint16_t>(port));
    ::inet_pton(AF_INET, address.c_str(), &result.sin_addr);
    return result;
}

/** The descriptor when the step succeeded, otherwise a negative value with the step's errno. */
int keep_if(UniqueFd fd, bool success)
{
    const int code = errno;
    if (success) {
        return fd.release();
    }
    fd.reset();
    errno = code;
    return -1;
}

int unix_socket(int type, const std::filesystem::path& path, sockaddr_un& address)
{
    address.sun_family = AF_UNIX;
    if (path.string().size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    std::strcpy(address.sun_path, path.c_str());
    return ::socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
}

int bind_unix(int type, const std::filesystem::path& path)
{
    sockaddr_un address = {};
    UniqueFd fd(unix_socket(type, path, address));
    if (!fd) {
        return -1;
    }
    ::unlink(path.c_str());
    const bool bound = ::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    return keep_if(std::move(fd), bound);
}

} // namespace

int listen_tcp(const std::string& address, int port)
{
    UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd) {
        return -1;
    }
    const int on = 1;
    ::setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const sockaddr_in local = inet_address(address, port);
    const bool success = ::bind(fd.get(), reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0 &&
                         ::listen(fd.get(), kBacklog) == 0;
    return keep_if(std::move(fd), success);
}

int bind_udp(const std::string& address, int port)
{
    UniqueFd fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const sockaddr_in local = inet_address(address, port);
    const bool success = fd && ::bind(fd.get(), reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0;
    return keep_if(std::move(fd), success);
}

int connect_udp(const std::string& address, int port)
{
    UniqueFd fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const sockaddr_in peer = inet_address(address, port);
    const bool success =
        fd && ::connect(fd.get(), reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0;
    return keep_if(std::move(fd), success);
}

int port_of(int fd)
{
    sockaddr_in address = {};
    socklen_t size = sizeof address;
    if (::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        return 0;
    }
    return ntohs(address.sin_port);
}

std::string interface_address(int fd, const std::string& interface)
{
    ifreq request = {};
    interface.copy(request.ifr_name, IFNAMSIZ - 1);
    if (::ioctl(fd, SIOCGIFADDR, &request) != 0) {
        return {};
    }
    sockaddr_in address = {};
    std::memcpy(&address, &request.ifr_addr, sizeof address);
    char text[INET_ADDRSTRLEN] = "";
    ::inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
    return text;
}

int listen_unix(const std::filesystem::path& path)
{
    UniqueFd fd(bind_unix(SOCK_STREAM, path));
    const bool success = fd && ::listen(fd.get(), kBacklog) == 0;
    return keep_if(std::move(fd), success);
}

int bind_unix_datagrams(const std::filesystem::path& path)
{
    return bind_unix(SOCK_DGRAM, path);
}

int connect_unix(const std::filesystem::path& path)
{
    sockaddr_un address = {};
    UniqueFd fd(unix_socket(SOCK_STREAM, path, address));
    const bool success =
        fd && ::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    return keep_if(std::move(fd), success);
}

std::string exchange(int fd, const std::string& request, const std::string& end, int seconds)
{
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::seconds(seconds);
    std::string reply;
    // An empty request is not sent: the socket may be shut down for writing already.
    if (!request.empty() &&
        ::send(fd, request.data(), request.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(request.size())) {
        return reply;
    }
    while (reply.size() < kMostReply && (end.empty() || !reply.ends_with(end))) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd waiting = {fd, POLLIN, 0};
        if (left <= 0 || (::poll(&waiting, 1, static_cast<int>(left)) < 0 && errno != EINTR)) {
            break;
        }
        char part[4096];
        const ssize_t count = ::recv(fd, part, sizeof part, MSG_DONTWAIT);
        if (count > 0) {
            reply.append(part, static_cast<size_t>(count));
        } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
            break;
        }
    }
    return reply;
}

} // namespace orvan_launcher
