#include "client.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace orvan_test {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

Client::Client(int port) : m_fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (m_fd < 0 || ::connect(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int error = errno;
        if (m_fd >= 0) {
            ::close(m_fd);
        }
        throw std::system_error(error, std::generic_category(), "connect to port " + std::to_string(port));
    }
    const int on = 1;
    ::setsockopt(m_fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

Client::~Client()
{
    if (m_fd >= 0) {
        ::close(m_fd);
    }
}

Client::Client(Client&& other) noexcept
    : m_fd(std::exchange(other.m_fd, -1)), m_received(std::move(other.m_received))
{
}

bool Client::send(std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t sent = ::send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<size_t>(sent));
    }
    return true;
}

bool Client::wait_readable(Clock::time_point deadline) const
{
    const auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now());
    pollfd poll_fd{m_fd, POLLIN, 0};
    return left.count() >= 0 && ::poll(&poll_fd, 1, static_cast<int>(left.count())) == 1;
}

std::string Client::read_line(milliseconds wait)
{
    const auto deadline = Clock::now() + wait;
    for (;;) {
        if (const size_t end = m_received.find('\n'); end != std::string::npos) {
            std::string line = m_received.substr(0, end + 1);
            m_received.erase(0, end + 1);
            return line;
        }
        char piece[4096];
        const ssize_t got = wait_readable(deadline) ? ::recv(m_fd, piece, sizeof piece, 0) : -1;
        if (got <= 0) {
            return std::exchange(m_received, {});
        }
        m_received.append(piece, static_cast<size_t>(got));
    }
}

std::string Client::ask(std::string_view line, milliseconds wait)
{
    send(std::string(line) + "\n");
    return read_line(wait);
}

void Client::finish_sending()
{
    ::shutdown(m_fd, SHUT_WR);
}

void Client::reset()
{
    const linger now{1, 0};
    ::setsockopt(m_fd, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    ::close(std::exchange(m_fd, -1));
}

bool Client::stays_silent(milliseconds wait)
{
    return m_received.empty() && !wait_readable(Clock::now() + wait);
}

} // namespace orvan_test
