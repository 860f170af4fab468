#include "library_instrument.h"

#include <cerrno>
#include <string_view>
#include <system_error>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <syslog.h>

#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include "orvan_sdk/scpi-parser/scpi_selection.h"

namespace orvan_service {
namespace {

// Larger than any reply, as nobody reads while the library writes. If the system grants less, a reply that
// does not fit is cut short after the timeout.
constexpr int kBuffer = 256 * 1024;
constexpr timeval kSendTimeout{0, 300'000};

// Sent after each reply. It ends no reply: the library's end with CR LF or a result.
constexpr std::string_view kMark("\0\4end of reply\4\0", 16);

// The library's buffer for replies, which it writes as a whole when it is full.
constexpr size_t kLibraryBuffer = 2048;

constexpr in_addr_t kPeer = INADDR_LOOPBACK + 1;

void check(bool good, const char* what)
{
    if (!good) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

sockaddr_in name_of(int socket)
{
    sockaddr_in name{};
    socklen_t size = sizeof name;
    check(::getsockname(socket, reinterpret_cast<sockaddr*>(&name), &size) == 0, "getsockname");
    return name;
}

orvan_common::UniqueFd new_socket()
{
    orvan_common::UniqueFd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    check(static_cast<bool>(socket), "socket");
    return socket;
}

/** The other end of `client`; connections of others are dropped. */
orvan_common::UniqueFd accept_from(int listener, int client)
{
    const sockaddr_in expected = name_of(client);
    while (true) {
        sockaddr_in peer{};
        socklen_t size = sizeof peer;
        orvan_common::UniqueFd socket(
            ::accept4(listener, reinterpret_cast<sockaddr*>(&peer), &size, SOCK_CLOEXEC));
        check(socket || errno == EINTR || errno == ECONNABORTED, "accept");
        if (socket && peer.sin_port == expected.sin_port &&
            peer.sin_addr.s_addr == expected.sin_addr.s_addr) {
            return socket;
        }
    }
}

} // namespace

LibraryInstrument::LibraryInstrument(MessageSink& sink) : m_sink(sink), m_library(new_socket())
{
    const orvan_common::UniqueFd listener = new_socket();
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(kPeer);
    check(::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0, "bind");
    check(::listen(listener.get(), 1) == 0, "listen");
    const sockaddr_in bound = name_of(listener.get());
    ::setsockopt(m_library.get(), SOL_SOCKET, SO_SNDBUF, &kBuffer, sizeof kBuffer);
    ::setsockopt(m_library.get(), SOL_SOCKET, SO_SNDTIMEO, &kSendTimeout, sizeof kSendTimeout);
    check(::connect(m_library.get(), reinterpret_cast<const sockaddr*>(&bound), sizeof bound) == 0,
          "connect");
    const int on = 1;
    ::setsockopt(m_library.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    m_reader = accept_from(listener.get(), m_library.get());
}

std::string LibraryInstrument::execute(int& channel, std::span<char> message)
{
    {
        HaldeElec::Orvan::OwnSelection selection(*Scpi_Orvanx::getInstance(), channel);
        m_sink.execute(m_library.get(), message.data(), message.size());
        channel = selection.channel();
    }
    return receive_reply();
}

std::string LibraryInstrument::receive_reply()
{
    std::string reply;
    // The library writes a reply that is shorter than its buffer at once.
    if (receive(reply, MSG_DONTWAIT) && reply.size() < kLibraryBuffer && reply.ends_with("+OK\r\n")) {
        return reply;
    }
    size_t marked = 0; // bytes of the mark that have been sent
    while (!reply.ends_with(kMark)) {
        if (marked < kMark.size()) {
            const ssize_t sent = ::send(m_library.get(), kMark.data() + marked, kMark.size() - marked,
                                        MSG_DONTWAIT | MSG_NOSIGNAL);
            marked += sent > 0 ? static_cast<size_t>(sent) : 0;
        }
        if (!receive(reply, 0)) {
            ::syslog(LOG_ERR, "standard session: no reply from the library");
            return {};
        }
    }
    reply.resize(reply.size() - kMark.size());
    return reply;
}

/** Appends what has arrived. @return false without a connection, which is not expected to break */
bool LibraryInstrument::receive(std::string& reply, int flags)
{
    char bytes[4096];
    const ssize_t received = ::recv(m_reader.get(), bytes, sizeof bytes, flags);
    if (received > 0) {
        reply.append(bytes, static_cast<size_t>(received));
    }
    return received > 0 || (received < 0 && (errno == EINTR || errno == EAGAIN));
}

} // namespace orvan_service
