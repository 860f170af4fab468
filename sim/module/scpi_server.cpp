#include "scpi_server.h"

#include <cerrno>
#include <chrono>
#include <system_error>
#include <utility>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "scpi_connection.h"
#include "socket_name.h"

using orvan_common::UniqueFd;

namespace sim_module {

namespace {

// accept() keeps failing when descriptors run out; connections that end meanwhile free some.
constexpr std::chrono::milliseconds kAcceptPause{100};

} // namespace

ScpiServer::ScpiServer(sim_control::EventLoop& loop, const std::string& address, uint16_t port,
                       RequestExecutor& executor, const Faults& faults, RequestLog& log)
    : m_loop(loop), m_address(address), m_port(port), m_executor(executor), m_faults(faults), m_log(log)
{
    apply_faults();
}

ScpiServer::~ScpiServer()
{
    m_loop.cancel(m_accept_pause);
    close_port();
}

void ScpiServer::apply_faults()
{
    const bool open = m_faults.port_open() && !m_away;
    if (open && !m_listener) {
        open_port();
    } else if (!open && m_listener) {
        close_port();
    }
}

void ScpiServer::set_away(bool away)
{
    if (away) {
        m_connections.clear();
    }
    const bool before = std::exchange(m_away, away);
    try {
        apply_faults();
    } catch (const std::system_error&) {
        m_away = before;
        throw;
    }
}

void ScpiServer::open_port()
{
    UniqueFd listener(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int on = 1;
    // Accepted sockets inherit TCP_NODELAY, which saves a call for each connection.
    if (!listener || ::setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        ::setsockopt(listener.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0) {
        throw_errno("socket");
    }
    m_port = bind_socket(listener.get(), m_address, m_port);
    if (::listen(listener.get(), SOMAXCONN) != 0) {
        throw_errno((m_address + ":" + std::to_string(m_port)).c_str());
    }
    m_listener = std::move(listener);
    m_loop.watch(m_listener.get(), POLLIN, *this);
}

void ScpiServer::close_port()
{
    if (m_listener) {
        m_loop.unwatch(m_listener.get());
        m_listener.reset();
    }
}

void ScpiServer::on_ready(short)
{
    UniqueFd socket(::accept4(m_listener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (socket) {
        auto connection = std::make_unique<ScpiConnection>(*this, std::move(socket));
        ScpiConnection& started = *connection;
        m_connections.emplace(connection.get(), std::move(connection));
        started.start();
        return;
    }
    if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
        m_loop.change(m_listener.get(), 0);
        m_accept_pause = m_loop.after(kAcceptPause, [this] {
            if (m_listener) {
                m_loop.change(m_listener.get(), POLLIN);
            }
        });
    }
}

void ScpiServer::remove(const ScpiConnection& connection)
{
    m_connections.erase(&connection);
}

} // namespace sim_module
