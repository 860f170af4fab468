#include "raw_session.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <syslog.h>

#include "scpi/error.h"
#include "service/listener.h"

namespace orvan_service {
namespace {

// A fixed send buffer, so that a socket that poll() reports as writable (a third of the buffer is free)
// accepts this many replies of 2048 bytes with their overhead, and writability is checked only once per so
// many replies.
constexpr int kSendBuffer = 256 * 1024;
constexpr unsigned kRepliesPerCheck = 16;

// Within a block of several megabytes the executor is not woken for less than this, which saves a twelfth of
// the block's time.
constexpr size_t kBulk = 512 * 1024;

template <typename T>
void set_option(int socket, int level, int name, const T& value)
{
    if (::setsockopt(socket, level, name, &value, sizeof value) != 0) {
        ::syslog(LOG_WARNING, "client %d: socket option %d/%d: %s", socket, level, name,
                 std::strerror(errno));
    }
}

} // namespace

RawSession::RawSession(orvan_common::UniqueFd socket, MessageSink& sink, MessageMemory& memory,
                       Counters& counters, const RawLimits& limits)
    : Session({Protocol::kRaw, peer_address(socket.get())}), m_socket(std::move(socket)), m_sink(sink),
      m_counters(counters), m_limits(limits), m_buffer(memory)
{
    const int fd = m_socket.get();
    const auto count = m_limits.send_timeout.count();
    const timeval send_timeout{static_cast<time_t>(count / 1000),
                               static_cast<suseconds_t>(count % 1000 * 1000)};
    set_option(fd, IPPROTO_TCP, TCP_NODELAY, 1);
    set_option(fd, SOL_SOCKET, SO_SNDBUF, kSendBuffer);
    set_option(fd, SOL_SOCKET, SO_SNDTIMEO, send_timeout);
    // Otherwise a client whose cable was pulled would occupy its place forever.
    set_option(fd, SOL_SOCKET, SO_KEEPALIVE, 1);
    set_option(fd, IPPROTO_TCP, TCP_KEEPIDLE, 60);
    set_option(fd, IPPROTO_TCP, TCP_KEEPINTVL, 10);
    set_option(fd, IPPROTO_TCP, TCP_KEEPCNT, 6);
    ::syslog(LOG_INFO, "client %d: connected", fd);
}

RawSession::~RawSession()
{
    ::shutdown(m_socket.get(), SHUT_RDWR);
    if (m_had_turn) {
        m_sink.client_lost(m_socket.get());
    }
    ::syslog(LOG_INFO, "client %d: gone", m_socket.get());
}

Session::Wait RawSession::advance(ServiceTime now, bool readable)
try {
    if (!m_message.empty()) {
        return wait_for_turn(now);
    }
    if (readable && !receive()) {
        m_input_ended = true;
    }
    if (m_broken) {
        return Wait::kOver;
    }
    while (true) {
        const auto cut = m_buffer.next();
        switch (cut.event) {
        case MessageBuffer::Event::kMessage:
            m_begun = m_deadline = kNever;
            m_message = cut.message;
            return wait_for_turn(now);
        case MessageBuffer::Event::kOverrun:
            ::syslog(LOG_NOTICE, "client %d: message longer than %zu bytes dropped", m_socket.get(),
                     m_buffer.limit());
            answer_error(SCPI_ERROR_INPUT_BUFFER_OVERRUN);
            break;
        case MessageBuffer::Event::kWait:
            // Its time begins when there is memory for it. A message that has some and needs more keeps its
            // deadline, or such messages could wait for each other forever.
            if (m_buffer.has_long_piece()) {
                start_clock(now);
            } else {
                m_begun = m_deadline = kNever;
            }
            return Wait::kMemory;
        case MessageBuffer::Event::kNeedMore:
            return m_input_ended ? Wait::kOver : wait_for_input(now);
        }
    }
} catch (const std::bad_alloc&) {
    ::syslog(LOG_ERR, "client %d: closed, no memory", m_socket.get());
    return Wait::kOver;
}

Session::Wait RawSession::wait_for_turn(ServiceTime now)
{
    if (m_unchecked_replies < kRepliesPerCheck || has_room_for_reply()) {
        m_unchecked_replies %= kRepliesPerCheck;
        m_deadline = kNever;
        return Wait::kTurn;
    }
    if (m_deadline == kNever) {
        m_deadline = now + m_limits.reply_patience;
    }
    return Wait::kRoom;
}

Session::Wait RawSession::wait_for_input(ServiceTime now)
{
    receive_in_bulk(m_buffer.expected() >= kBulk);
    if (m_buffer.unfinished()) {
        start_clock(now);
    } else {
        m_deadline = kNever;
    }
    return Wait::kInput;
}

void RawSession::start_clock(ServiceTime now)
{
    if (m_begun == kNever) {
        m_begun = now;
    }
    m_deadline = m_begun + m_limits.message_patience +
                 std::chrono::seconds(m_buffer.length() / RawLimits::kBytesASecond);
}

void RawSession::execute()
{
    const auto message = m_message;
    m_message = {};
    ++m_unchecked_replies;
    m_had_turn = true;
    const ServiceTime begin = coarse_now();
    m_sink.execute(m_socket.get(), message.data(), message.size());
    // The writer of the reply does not report whether it was sent. After a long command, a client that left
    // many replies unread is treated in the same way.
    if (coarse_now() - begin + kCoarseStep >= m_limits.send_timeout && !has_room_for_reply()) {
        ::syslog(LOG_NOTICE, "client %d: closed, it does not read its reply", m_socket.get());
        m_broken = true;
    }
}

bool RawSession::receive()
{
    const auto space = m_buffer.space();
    const ssize_t received = ::recv(m_socket.get(), space.data(), space.size(), MSG_DONTWAIT);
    if (received > 0) {
        const auto bytes = space.first(static_cast<size_t>(received));
        if (m_first_line.feed(bytes) == HttpRequestLine::Verdict::kYes) {
            ::syslog(LOG_WARNING, "client %d at %s: closed, its first line is an HTTP request line",
                     m_socket.get(), client().address.c_str());
            m_broken = true;
            return false;
        }
        m_buffer.received(bytes.size());
    }
    return received > 0 || (received < 0 && (errno == EAGAIN || errno == EINTR));
}

void RawSession::receive_in_bulk(bool bulk)
{
    if (bulk != m_bulk) {
        m_bulk = bulk;
        set_option(m_socket.get(), SOL_SOCKET, SO_RCVLOWAT, bulk ? static_cast<int>(kBulk) : 1);
    }
}

// A reset after the end of the peer's input answers our replies: it no longer reads them. EPIPE indicates
// that, except for a reply of several writes, where the second consumes the error: that counts as a reset.
Session::HangUp RawSession::hung_up()
{
    int error = 0;
    socklen_t size = sizeof error;
    ::getsockopt(m_socket.get(), SOL_SOCKET, SO_ERROR, &error, &size);
    m_orderly = m_orderly || m_input_ended || error == EPIPE;
    return m_orderly ? HangUp::kOrderly : HangUp::kReset;
}

void RawSession::expired()
{
    if (m_message.empty()) {
        ::syslog(LOG_NOTICE, "client %d: closed, its message did not arrive completely in time",
                 m_socket.get());
        answer_error(SCPI_ERROR_TIME_OUT);
        ::shutdown(m_socket.get(), SHUT_WR);
        discard_input(m_socket.get());
    } else {
        ::syslog(LOG_NOTICE, "client %d: closed, it does not read its replies", m_socket.get());
    }
}

bool RawSession::stays_open() const
{
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    return !m_had_turn && ::getpeername(m_socket.get(), reinterpret_cast<sockaddr*>(&peer), &size) == 0 &&
           peer.sin_family == AF_INET && peer.sin_addr.s_addr == htonl(INADDR_LOOPBACK);
}

void RawSession::answer_error(int number)
{
    const char* const text = SCPI_ErrorTranslate(static_cast<int_fast16_t>(number));
    m_counters.count_error(client(), {number, text}, {});
    char reply[128];
    const int size = std::snprintf(reply, sizeof reply, "-ERR %d, \"%s\";+OK\r\n", number, text);
    if (::send(m_socket.get(), reply, static_cast<size_t>(size), MSG_NOSIGNAL | MSG_DONTWAIT) < 0) {
        ::syslog(LOG_INFO, "client %d: send: %s", m_socket.get(), std::strerror(errno));
    }
}

bool RawSession::has_room_for_reply() const
{
    pollfd socket{m_socket.get(), POLLOUT, 0};
    int ready;
    do {
        ready = ::poll(&socket, 1, 0);
    } while (ready < 0 && errno == EINTR);
    // A reset connection is reported by the next receive().
    return ready != 0;
}

} // namespace orvan_service
