#include "client_session.h"

#include "listener.h"

#include "scpi/error.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <syslog.h>
#include <time.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace orvan_service {
namespace {

// A fixed send buffer, so that a socket which poll() calls writable (a third of the buffer is free) takes
// this many replies of 2048 bytes with their bookkeeping. It lets the check of that be made once for so
// many replies and not for each.
constexpr int kSendBuffer = 256 * 1024;
constexpr unsigned kRepliesPerCheck = 16;

// In the midst of a block of some megabytes the thread is not woken for less than this, which spares a
// twelfth of the block's time. A receive that has taken a part and sleeps is woken when this much is queued
// behind that part, so twice as much has to be still to come when it begins: else it would sleep for ever.
constexpr int kBulk = 512 * 1024;
constexpr size_t kBulkExpected = 2 * kBulk;

constexpr int kInputBufferOverrun = -363;

template <typename T>
void set_option(int socket, int level, int name, const T& value)
{
    if (::setsockopt(socket, level, name, &value, sizeof value) != 0) {
        ::syslog(LOG_WARNING, "client %d: socket option %d/%d: %s", socket, level, name,
                 std::strerror(errno));
    }
}

// As the library knows its own connections.
bool is_of_this_machine(int socket)
{
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    return ::getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &size) == 0 &&
           peer.sin_family == AF_INET && peer.sin_addr.s_addr == htonl(INADDR_LOOPBACK);
}

// Coarse: it costs a few nanoseconds, and its step of some milliseconds is small beside a send time-out.
std::chrono::milliseconds coarse_now()
{
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::milliseconds(now.tv_nsec / 1'000'000);
}
constexpr std::chrono::milliseconds kCoarseStep{20};

} // namespace

ClientSession::ClientSession(UniqueFd socket, MessageSink& sink, TurnQueue& turns, LargeBufferPool& pool,
                             const SessionLimits& limits)
    : m_socket(std::move(socket)), m_sink(sink), m_turns(turns), m_limits(limits), m_buffer(pool)
{
    const int fd = m_socket.get();
    const auto count = m_limits.send_timeout.count();
    const timeval send_timeout{static_cast<time_t>(count / 1000),
                               static_cast<suseconds_t>(count % 1000 * 1000)};
    set_option(fd, IPPROTO_TCP, TCP_NODELAY, 1);
    set_option(fd, SOL_SOCKET, SO_SNDBUF, kSendBuffer);
    set_option(fd, SOL_SOCKET, SO_SNDTIMEO, send_timeout);
    // A client whose cable was pulled would keep its place for ever.
    set_option(fd, SOL_SOCKET, SO_KEEPALIVE, 1);
    set_option(fd, IPPROTO_TCP, TCP_KEEPIDLE, 60);
    set_option(fd, IPPROTO_TCP, TCP_KEEPINTVL, 10);
    set_option(fd, IPPROTO_TCP, TCP_KEEPCNT, 6);
}

void ClientSession::run()
{
    const int fd = m_socket.get();
    ::syslog(LOG_INFO, "client %d: connected", fd);
    bool alive = true;
    while (alive && receive()) {
        for (auto cut = m_buffer.next(); alive && cut.event != MessageBuffer::Event::kNeedMore;
             cut = m_buffer.next()) {
            if (cut.event == MessageBuffer::Event::kMessage) {
                alive = execute(cut.message);
            } else {
                refuse_overrun();
            }
        }
    }
    m_stays_open = m_ending.load(std::memory_order_relaxed) && !m_had_turn && is_of_this_machine(fd);
    if (!m_stays_open) {
        ::shutdown(fd, SHUT_RDWR);
    }
    // A client that never had a turn left nothing behind, and need not wait for one, perhaps for minutes.
    if (m_had_turn) {
        const Turn turn(m_turns);
        m_sink.client_lost(fd);
    }
    ::syslog(LOG_INFO, "client %d: gone", fd);
}

void ClientSession::end()
{
    m_ending.store(true, std::memory_order_relaxed);
    ::shutdown(m_socket.get(), SHUT_RD);
}

bool ClientSession::receive()
{
    receive_in_bulk(m_buffer.expected() >= kBulkExpected);
    const auto space = m_buffer.space();
    ssize_t received;
    do {
        received = ::recv(m_socket.get(), space.data(), space.size(), 0);
    } while (received < 0 && errno == EINTR);
    if (received <= 0) {
        return false;
    }
    if (m_first_line.feed(space.first(static_cast<size_t>(received))) == HttpRequestLine::Verdict::kYes) {
        ::syslog(LOG_WARNING, "client %d at %s: closed, its first line is an HTTP request line",
                 m_socket.get(), peer_address(m_socket.get()).c_str());
        return false;
    }
    m_buffer.received(static_cast<size_t>(received));
    return true;
}

void ClientSession::receive_in_bulk(bool bulk)
{
    if (bulk != m_bulk) {
        m_bulk = bulk;
        set_option(m_socket.get(), SOL_SOCKET, SO_RCVLOWAT, bulk ? kBulk : 1);
    }
}

bool ClientSession::execute(std::span<char> message)
{
    const int fd = m_socket.get();
    if (++m_unchecked_replies > kRepliesPerCheck) {
        if (!has_room_for_reply(m_limits.reply_patience)) {
            ::syslog(LOG_NOTICE, "client %d: closed, it does not read its replies", fd);
            return false;
        }
        m_unchecked_replies = 1;
    }
    std::chrono::milliseconds taken;
    {
        const Turn turn(m_turns);
        if (m_ending.load(std::memory_order_relaxed)) {
            return false;
        }
        m_had_turn = true;
        const auto begin = coarse_now();
        m_sink.execute(fd, message.data(), message.size());
        taken = coarse_now() - begin;
    }
    // Whoever writes the reply does not say whether it went out.
    if (taken + kCoarseStep >= m_limits.send_timeout && !has_room_for_reply({})) {
        ::syslog(LOG_NOTICE, "client %d: closed, it does not read its reply", fd);
        return false;
    }
    return true;
}

void ClientSession::refuse_overrun()
{
    const std::string reply = "-ERR " + std::to_string(kInputBufferOverrun) + ", \"" +
                              SCPI_ErrorTranslate(kInputBufferOverrun) + "\";+OK\r\n";
    ::syslog(LOG_NOTICE, "client %d: message longer than %zu bytes dropped", m_socket.get(),
             m_buffer.limit());
    if (::send(m_socket.get(), reply.data(), reply.size(), MSG_NOSIGNAL) < 0) {
        ::syslog(LOG_INFO, "client %d: send: %s", m_socket.get(), std::strerror(errno));
    }
}

bool ClientSession::has_room_for_reply(std::chrono::milliseconds patience) const
{
    pollfd socket{m_socket.get(), POLLOUT, 0};
    int ready;
    do {
        ready = ::poll(&socket, 1, static_cast<int>(patience.count()));
    } while (ready < 0 && errno == EINTR);
    // A reset connection is not this function's matter: the next receive tells it.
    return ready != 0;
}

} // namespace orvan_service
