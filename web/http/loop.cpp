#include "http/loop.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <future>
#include <stdexcept>
#include <system_error>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <syslog.h>

#include "http/socket_address.h"

namespace orvan_web {
namespace {

using orvan_common::UniqueFd;

// Memory of a connection for the head of its request and its buffers.
constexpr size_t kConnectionMemory = size_t{32} << 10;

// Connections that are being closed still take libmicrohttpd's places.
constexpr unsigned kClosingPlaces = 64;

constexpr std::chrono::milliseconds kLongestTick{1000};

// How long the last replies may take.
constexpr std::chrono::milliseconds kEndPatience{500};

// Newcomers that are looked at before the others are served again.
constexpr int kMostAccepted = 64;

// What an event of epoll is about: a listener (its index follows), the mailbox, libmicrohttpd, or a stream
// (its connection's number follows).
constexpr uint64_t kMailbox = 1;
constexpr uint64_t kDaemon = 2;
constexpr uint64_t kListener = uint64_t{1} << 32;

constexpr const char* kUnread = "its viewer does not read";

constexpr std::string_view kBusy =
    "HTTP/1.1 503 Service Unavailable\r\nConnection: close\r\nRetry-After: 2\r\n"
    "Content-Length: 0\r\n\r\n";

__attribute__((format(printf, 2, 0))) void log(void*, const char* format, va_list arguments)
{
    ::vsyslog(LOG_DEBUG, format, arguments);
}

// Closing at once with bytes unread would send a reset, which may overtake the reply.
void refuse(int socket)
{
    ::send(socket, kBusy.data(), kBusy.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    ::shutdown(socket, SHUT_WR);
    constexpr size_t kAll = 64 << 10;
    ::recv(socket, nullptr, kAll, MSG_TRUNC | MSG_DONTWAIT);
}

std::chrono::milliseconds tick_of(const Limits& limits)
{
    const auto shortest = std::min({limits.receive, limits.send, limits.keep_alive, limits.stall});
    return std::clamp(shortest / 4, std::chrono::milliseconds(1), kLongestTick);
}

} // namespace

HttpServer::Loop::Loop(ServerParts parts, Gate& gate)
    : m_parts(std::move(parts)), m_gate(gate), m_tick(tick_of(m_parts.limits)),
      m_epoll(::epoll_create1(EPOLL_CLOEXEC)), m_places(m_parts.limits)
{
    if (!m_epoll) {
        throw std::system_error(errno, std::generic_category(), "epoll_create1");
    }
    const MHD_AccessHandlerCallback on_request_callback =
        [](void* loop, MHD_Connection* handle, const char* url, const char* method, const char*,
           const char* data, size_t* size, void** transaction) {
            return static_cast<Loop*>(loop)->on_request(handle, url, method, data, size, transaction);
        };
    const MHD_RequestCompletedCallback on_completed_callback =
        [](void* loop, MHD_Connection* handle, void** transaction, MHD_RequestTerminationCode) {
            static_cast<Loop*>(loop)->on_completed(handle, transaction);
        };
    const MHD_NotifyConnectionCallback on_connection_callback =
        [](void* loop, MHD_Connection* handle, void** context, MHD_ConnectionNotificationCode code) {
            static_cast<Loop*>(loop)->on_connection(handle, context, code);
        };
    // Its own time-out and limits are not used: it allows a client that sends a byte now and then any time,
    // and leaves those beyond the limit waiting unanswered.
    m_daemon.reset(MHD_start_daemon(
        MHD_USE_EPOLL | MHD_USE_NO_LISTEN_SOCKET | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_ERROR_LOG, 0, nullptr,
        nullptr, on_request_callback, this, MHD_OPTION_EXTERNAL_LOGGER, log, nullptr,
        MHD_OPTION_NOTIFY_COMPLETED, on_completed_callback, this, MHD_OPTION_NOTIFY_CONNECTION,
        on_connection_callback, this, MHD_OPTION_CONNECTION_MEMORY_LIMIT, kConnectionMemory,
        MHD_OPTION_CONNECTION_LIMIT, static_cast<unsigned>(m_parts.limits.connections) + kClosingPlaces,
        MHD_OPTION_STRICT_FOR_CLIENT, 1, MHD_OPTION_END));
    if (!m_daemon) {
        throw std::runtime_error("the HTTP server does not start");
    }
    watch(m_mailbox->descriptor(), EPOLLIN, kMailbox);
    watch(MHD_get_daemon_info(m_daemon.get(), MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd, EPOLLIN, kDaemon);
    for (size_t i = 0; i < m_parts.listeners.size(); ++i) {
        watch(m_parts.listeners[i].get(), EPOLLIN, kListener + i);
    }
    m_thread = std::thread([this] { run(); });
    ::pthread_setname_np(m_thread.native_handle(), "http");
}

HttpServer::Loop::~Loop()
{
    m_mailbox->post([this] { m_ending = true; });
    m_thread.join();
    m_mailbox->close();
}

void HttpServer::Loop::watch(int fd, uint32_t events, uint64_t tag)
{
    epoll_event event{};
    event.events = events;
    event.data.u64 = tag;
    if (::epoll_ctl(m_epoll.get(), EPOLL_CTL_ADD, fd, &event) != 0) {
        throw std::system_error(errno, std::generic_category(), "epoll_ctl");
    }
}

void HttpServer::Loop::run()
{
    while (!m_ending) {
        wait();
        MHD_run(m_daemon.get());
        const auto now = Clock::now();
        if (now >= m_next_tick) {
            tick(now);
            m_next_tick = now + m_tick;
        }
    }
    finish();
}

void HttpServer::Loop::wait()
{
    int timeout = -1;
    if (!m_places.empty() || !m_accepting) {
        timeout = static_cast<int>(m_tick.count());
    }
    if (MHD_UNSIGNED_LONG_LONG pending = 0;
        MHD_get_timeout(m_daemon.get(), &pending) == MHD_YES && pending == 0) {
        timeout = 0;
    }
    std::array<epoll_event, 32> events{};
    const int count = ::epoll_wait(m_epoll.get(), events.data(), static_cast<int>(events.size()), timeout);
    for (int i = 0; i < count; ++i) {
        const uint64_t tag = events[static_cast<size_t>(i)].data.u64;
        if (tag == kMailbox) {
            m_mailbox->run();
        } else if (tag >= kStreamTag) {
            if (const auto found = m_connections.find(tag - kStreamTag); found != m_connections.end()) {
                drop_stream(*found->second, "its viewer has gone");
            }
        } else if (tag >= kListener) {
            accept_all(m_parts.listeners[static_cast<size_t>(tag - kListener)].get());
        }
    }
}

void HttpServer::Loop::accept_all(int listener)
{
    for (int i = 0; i < kMostAccepted; ++i) {
        sockaddr_storage storage{};
        socklen_t length = sizeof storage;
        auto& address = reinterpret_cast<sockaddr&>(storage);
        UniqueFd socket(::accept4(listener, &address, &length, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (socket) {
            accepted(std::move(socket), address, length);
        } else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
            ::syslog(LOG_WARNING, "no connection accepted: %s", std::strerror(errno));
            return pause_accepting();
        } else if (errno == EAGAIN) {
            return;
        }
    }
}

// The listener would stay readable and keep the thread busy.
void HttpServer::Loop::pause_accepting()
{
    m_accepting = false;
    for (const auto& listener : m_parts.listeners) {
        ::epoll_ctl(m_epoll.get(), EPOLL_CTL_DEL, listener.get(), nullptr);
    }
}

void HttpServer::Loop::accepted(UniqueFd socket, const sockaddr& address, socklen_t length)
{
    const std::string peer = address_text(address);
    const Places::Decision decision = m_places.admit(peer);
    if (decision.instead_of) {
        close(*decision.instead_of);
    }
    if (!decision.admitted) {
        refuse(socket.get());
        return;
    }
    const int on = 1;
    ::setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const int fd = socket.release(); // libmicrohttpd closes it in any case
    m_entering = std::make_unique<Connection>(Connection{m_places.add(peer, Clock::now()), fd, peer,
                                                         local_address_text(fd), nullptr, false, nullptr});
    if (const Id id = m_entering->id; MHD_add_connection(m_daemon.get(), fd, &address, length) != MHD_YES) {
        m_places.remove(id);
    }
    m_entering.reset();
}

void HttpServer::Loop::tick(Clock::time_point now)
{
    if (!m_accepting) {
        m_accepting = true;
        for (size_t i = 0; i < m_parts.listeners.size(); ++i) {
            watch(m_parts.listeners[i].get(), EPOLLIN, kListener + i);
        }
    }
    for (const Id id : m_places.overdue(now)) {
        close(id);
    }
    for (const auto& [id, connection] : m_connections) {
        if (!connection->stream) {
            continue;
        }
        const auto waiting_since = connection->stream->waiting_since();
        if (waiting_since && now - *waiting_since >= m_parts.limits.stall) {
            drop_stream(*connection, kUnread);
        } else if (now - connection->stream->last_added() >= m_parts.limits.keep_alive) {
            connection->stream->add(": keep-alive\n\n", now);
        }
    }
}

// libmicrohttpd sees an end of input and closes the connection.
void HttpServer::Loop::close(Id id)
{
    Connection& connection = *m_connections.at(id);
    if (connection.stream) {
        drop_stream(connection, "too many streams");
    } else {
        ::shutdown(connection.fd, SHUT_RDWR);
    }
}

void HttpServer::Loop::drop_stream(Connection& connection, const char* reason)
{
    if (!connection.stream || std::exchange(connection.stream_dropped, true)) {
        return;
    }
    ::syslog(LOG_INFO, "event stream of %s ended: %s", connection.peer.c_str(), reason);
    m_places.set(connection.id, PlaceState::kClosing, Clock::now());
    connection.stream->drop();
    ::epoll_ctl(m_epoll.get(), EPOLL_CTL_DEL, connection.fd, nullptr);
    ::shutdown(connection.fd, SHUT_RDWR);
}

void HttpServer::Loop::suspend(Connection& connection)
{
    connection.suspended = true;
    MHD_suspend_connection(connection.handle);
}

void HttpServer::Loop::resume(Id id)
{
    const auto found = m_connections.find(id);
    if (found == m_connections.end()) {
        return;
    }
    Connection& connection = *found->second;
    if (connection.stream && connection.stream->dropped()) {
        drop_stream(connection, kUnread);
    }
    if (std::exchange(connection.suspended, false)) {
        MHD_resume_connection(connection.handle);
    }
}

// Whoever holds it may outlive this object; then the mailbox is closed.
std::function<void()> HttpServer::Loop::waker(Id id)
{
    return [this, id, mailbox = m_mailbox] { mailbox->post([this, id] { resume(id); }); };
}

// A daemon must not be stopped while connections are suspended.
void HttpServer::Loop::finish()
{
    pause_accepting();
    const auto deadline = Clock::now() + kEndPatience;
    for (const auto& [id, connection] : m_connections) {
        if (connection->stream) {
            connection->stream->drop();
        }
        resume(id);
    }
    const auto is_busy = [this](const auto& connection) {
        const PlaceState state = m_places.state(connection.first);
        return state == PlaceState::kWaiting || state == PlaceState::kSending || state == PlaceState::kStream;
    };
    do {
        MHD_run(m_daemon.get());
        epoll_event event{};
        ::epoll_wait(m_epoll.get(), &event, 1, 1);
    } while (std::any_of(m_connections.begin(), m_connections.end(), is_busy) && Clock::now() < deadline);
    m_mailbox->close();
    m_daemon.reset();
}

HttpServer::HttpServer(ServerParts parts, Gate& gate) : m_loop(std::make_unique<Loop>(std::move(parts), gate))
{
}

HttpServer::~HttpServer() = default;

void HttpServer::end()
{
    m_loop.reset();
}

bool HttpServer::responds(std::chrono::milliseconds patience)
{
    if (!m_loop) {
        return false;
    }
    const auto responded = std::make_shared<std::promise<void>>();
    auto response = responded->get_future();
    m_loop->mailbox().post([responded] { responded->set_value(); });
    return response.wait_for(patience) == std::future_status::ready;
}

} // namespace orvan_web
