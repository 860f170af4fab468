#include "process/listening.h"

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <syslog.h>

namespace orvan_common {
namespace {

constexpr int kFirstInherited = 3;

struct Address {
    sockaddr_storage storage{};
    socklen_t length = 0;
    sockaddr* get() { return reinterpret_cast<sockaddr*>(&storage); }
};

Address make_address(const std::string& text, uint16_t port)
{
    const bool is_v6 = text.find(':') != std::string::npos;
    Address address;
    auto& v4 = reinterpret_cast<sockaddr_in&>(address.storage);
    auto& v6 = reinterpret_cast<sockaddr_in6&>(address.storage);
    address.storage.ss_family = is_v6 ? AF_INET6 : AF_INET;
    address.length = is_v6 ? sizeof v6 : sizeof v4;
    void* const host = is_v6 ? static_cast<void*>(&v6.sin6_addr) : &v4.sin_addr;
    if (::inet_pton(address.storage.ss_family, text.c_str(), host) != 1) {
        throw std::runtime_error("not an IPv4 or IPv6 address: " + text);
    }
    v4.sin_port = htons(port); // at the same offset for both families
    return address;
}

[[noreturn]] void fail(const std::string& what)
{
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

UniqueFd open_listener(const std::string& text, uint16_t port)
{
    Address address = make_address(text, port);
    const std::string what = "cannot listen on " + text + " port " + std::to_string(port);
    UniqueFd socket(::socket(address.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket) {
        fail(what);
    }
    const int on = 1;
    ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (address.storage.ss_family == AF_INET6) {
        ::setsockopt(socket.get(), IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
    }
    if (::bind(socket.get(), address.get(), address.length) != 0 || ::listen(socket.get(), SOMAXCONN) != 0) {
        fail(what);
    }
    return socket;
}

Address bound_address(int socket)
{
    Address address;
    address.length = sizeof address.storage;
    if (::getsockname(socket, address.get(), &address.length) != 0) {
        fail("getsockname");
    }
    return address;
}

std::string to_text(Address address)
{
    char host[NI_MAXHOST];
    char port[NI_MAXSERV];
    if (::getnameinfo(address.get(), address.length, host, sizeof host, port, sizeof port,
                      NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
        return "?";
    }
    std::string text(host);
    if (address.storage.ss_family == AF_INET6) {
        text.insert(0, 1, '[').push_back(']');
    }
    return text + ':' + port;
}

/** The names in LISTEN_FDNAMES; empty if it is not set. */
std::vector<std::string> descriptor_names(long count)
{
    std::vector<std::string> names;
    const char* const text = std::getenv("LISTEN_FDNAMES");
    if (!text || *text == '\0') {
        return names;
    }
    std::istringstream list(std::string(text) + ':'); // so that an empty last name counts
    for (std::string name; std::getline(list, name, ':');) {
        names.push_back(name);
    }
    if (std::cmp_not_equal(names.size(), count)) {
        throw std::runtime_error("LISTEN_FDNAMES does not have " + std::to_string(count) + " names: " + text);
    }
    return names;
}

long number_from(const char* variable, const char* text)
{
    long value = -1;
    const std::string_view digits(text);
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (error != std::errc() || end != digits.data() + digits.size() || value < 0) {
        throw std::runtime_error(std::string(variable) + " is not a number: " + text);
    }
    return value;
}

} // namespace

std::vector<UniqueFd> open_listeners(const std::string& address, uint16_t port)
{
    std::vector<UniqueFd> listeners;
    if (!address.empty()) {
        listeners.push_back(open_listener(address, port));
        return listeners;
    }
    listeners.push_back(open_listener("0.0.0.0", port));
    if (UniqueFd probe(::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0)); !probe) {
        ::syslog(LOG_NOTICE, "no IPv6 on this machine");
        return listeners;
    }
    try {
        listeners.push_back(open_listener("::", port_of(listeners.front().get())));
    } catch (const std::runtime_error& error) {
        // IPv6 may be supported but disabled; IPv4 clients are still served.
        ::syslog(LOG_WARNING, "%s", error.what());
    }
    return listeners;
}

std::vector<InheritedSocket> inherited_sockets()
{
    const char* const pid = std::getenv("LISTEN_PID");
    const char* const fds = std::getenv("LISTEN_FDS");
    std::vector<InheritedSocket> sockets;
    if (!pid || !fds || number_from("LISTEN_PID", pid) != ::getpid()) {
        return sockets;
    }
    const long count = number_from("LISTEN_FDS", fds);
    const std::vector<std::string> names = descriptor_names(count);
    for (int fd = kFirstInherited; fd < kFirstInherited + count; ++fd) {
        int listening = 0;
        socklen_t size = sizeof listening;
        if (::getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &size) != 0 || listening == 0) {
            throw std::runtime_error("descriptor " + std::to_string(fd) +
                                     " of LISTEN_FDS is not a listening socket");
        }
        sockets.push_back(
            {names.empty() ? "" : names[static_cast<size_t>(fd - kFirstInherited)], UniqueFd(fd)});
        ::fcntl(fd, F_SETFD, FD_CLOEXEC);
        ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
    }
    ::unsetenv("LISTEN_PID");
    ::unsetenv("LISTEN_FDS");
    ::unsetenv("LISTEN_FDNAMES");
    return sockets;
}

uint16_t port_of(int socket)
{
    const Address address = bound_address(socket);
    // The port is at the same offset for both families.
    return ntohs(reinterpret_cast<const sockaddr_in&>(address.storage).sin_port);
}

std::string local_address(int socket)
{
    return to_text(bound_address(socket));
}

std::string peer_address(int socket)
{
    Address address;
    address.length = sizeof address.storage;
    if (::getpeername(socket, address.get(), &address.length) != 0) {
        return "?";
    }
    return to_text(address);
}

} // namespace orvan_common
