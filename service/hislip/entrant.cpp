#include "entrant.h"

#include <algorithm>
#include <cerrno>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <syslog.h>

#include "service/listener.h"

namespace orvan_service::hislip {
namespace {

constexpr uint64_t kLongestPayload = 256; // a sub-address

void set_option(int socket, int level, int name, int value)
{
    ::setsockopt(socket, level, name, &value, sizeof value);
}

} // namespace

Entrant::Entrant(orvan_common::UniqueFd socket)
    : m_socket(std::move(socket)), m_deadline(Clock::now() + kEntrancePatience)
{
    const int fd = m_socket.get();
    set_option(fd, IPPROTO_TCP, TCP_NODELAY, 1);
    // Otherwise a client whose cable was pulled would occupy its place forever.
    set_option(fd, SOL_SOCKET, SO_KEEPALIVE, 1);
    set_option(fd, IPPROTO_TCP, TCP_KEEPIDLE, 60);
    set_option(fd, IPPROTO_TCP, TCP_KEEPINTVL, 10);
    set_option(fd, IPPROTO_TCP, TCP_KEEPCNT, 6);
    set_option(fd, IPPROTO_TCP, TCP_USER_TIMEOUT, 120'000); // milliseconds: the same with bytes on their way
}

Entrant::State Entrant::receive()
{
    std::string& target = m_header.size() < kHeaderSize ? m_header : m_payload;
    const size_t missing = m_header.size() < kHeaderSize
                               ? kHeaderSize - m_header.size()
                               : static_cast<size_t>(m_frame.length) - m_payload.size();
    char bytes[kLongestPayload];
    const ssize_t received = ::recv(m_socket.get(), bytes, std::min(missing, sizeof bytes), MSG_DONTWAIT);
    if (received <= 0) {
        return received < 0 && (errno == EAGAIN || errno == EINTR) ? State::kOpen : State::kBroken;
    }
    target.append(bytes, static_cast<size_t>(received));
    if (!std::string_view("HS").starts_with(std::string_view(m_header).substr(0, 2))) {
        refuse(Fatal::kBadHeader, "poorly formed message header");
        return State::kBroken;
    }
    if (m_header.size() < kHeaderSize) {
        return State::kOpen;
    }
    m_frame = *decode_header(m_header);
    if (m_frame.length > kLongestPayload) {
        refuse(Fatal::kBadInitialization, "invalid initialization sequence");
        return State::kBroken;
    }
    return m_payload.size() == m_frame.length ? State::kWhole : State::kOpen;
}

void Entrant::refuse(Fatal code, const char* reason) const
{
    ::syslog(LOG_NOTICE, "hislip: %s refused, %s", peer_address(m_socket.get()).c_str(), reason);
    std::string frame;
    append_frame(frame, {Type::kFatalError, static_cast<uint8_t>(code)}, reason);
    ::send(m_socket.get(), frame.data(), frame.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    ::shutdown(m_socket.get(), SHUT_WR);
    discard_input(m_socket.get());
}

void Entrant::send(Header header) const
{
    std::string frame;
    append_frame(frame, header);
    // It fits: nothing has been sent on this connection before.
    ::send(m_socket.get(), frame.data(), frame.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

} // namespace orvan_service::hislip
