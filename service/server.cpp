#include "server.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <syslog.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <system_error>

namespace orvan_service {
namespace {

// Pause when the process has no descriptor left: the connection stays pending, so poll() would not wait.
constexpr int kOutOfDescriptorsPauseMs = 100;

void signal_event(int fd)
{
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(fd, &one, sizeof one);
}

void clear_event(int fd)
{
    uint64_t count;
    [[maybe_unused]] const ssize_t read = ::read(fd, &count, sizeof count);
}

} // namespace

Server::Client::Client(UniqueFd socket, Server& server)
    : session(std::move(socket), server.m_sink, server.m_turns, server.m_pool, server.m_limits.session)
{
}

Server::Server(std::vector<UniqueFd> listeners, MessageSink& sink, const ServerLimits& limits)
    : m_sink(sink), m_limits(limits), m_listeners(std::move(listeners)),
      m_reap(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), m_pool(limits.max_message),
      m_turns(limits.max_clients)
{
    if (!m_reap) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

Server::~Server()
{
    end(std::chrono::hours(24));
}

void Server::run(int stop)
{
    std::vector<pollfd> waiting{{stop, POLLIN, 0}, {m_reap.get(), POLLIN, 0}};
    for (const auto& listener : m_listeners) {
        waiting.push_back({listener.get(), POLLIN, 0});
    }
    while (true) {
        const nfds_t count = m_out_of_descriptors ? 2 : waiting.size();
        const int ready = ::poll(waiting.data(), count, m_out_of_descriptors ? kOutOfDescriptorsPauseMs : -1);
        if (ready < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
        m_out_of_descriptors = false;
        if (ready <= 0) {
            continue;
        }
        if (waiting[0].revents != 0) {
            return;
        }
        if (waiting[1].revents != 0) {
            clear_event(m_reap.get());
            reap();
        }
        for (size_t i = 2; i < count; ++i) {
            if (waiting[i].revents != 0) {
                accept_client(waiting[i].fd);
            }
        }
    }
}

void Server::accept_client(int listener)
{
    UniqueFd socket(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
    if (socket) {
        serve(std::move(socket));
        return;
    }
    switch (errno) {
    case EMFILE:
    case ENFILE:
    case ENOBUFS:
    case ENOMEM:
        ::syslog(LOG_ERR, "accept: %s", std::strerror(errno));
        m_out_of_descriptors = true;
        break;
    default: // the client has gone again, or a signal came
        break;
    }
}

void Server::serve(UniqueFd socket)
{
    const std::lock_guard lock(m_mutex);
    if (m_active.size() >= m_limits.max_clients) {
        refuse(socket, "Too many clients");
        return;
    }
    const auto client = m_active.emplace(m_active.end(), std::move(socket), *this);
    try {
        client->thread = std::thread([this, client] {
            client->session.run();
            finished(client);
        });
    } catch (const std::system_error& error) {
        ::syslog(LOG_ERR, "client thread: %s", error.what());
        m_active.erase(client);
    }
}

void Server::refuse(const UniqueFd& socket, const char* reason)
{
    ::syslog(LOG_WARNING, "client refused: %s", reason);
    const std::string reply = std::string("-ERR ") + reason + ";+OK\r\n";
    ::send(socket.get(), reply.data(), reply.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    // Closing with bytes unread would send a reset, which may overtake the line.
    ::shutdown(socket.get(), SHUT_WR);
    char unread[4096];
    ::recv(socket.get(), unread, sizeof unread, MSG_DONTWAIT);
}

void Server::finished(Clients::iterator client)
{
    const std::lock_guard lock(m_mutex);
    m_finished.splice(m_finished.end(), m_active, client);
    if (m_active.empty()) {
        m_all_finished.notify_all();
    }
    signal_event(m_reap.get());
}

void Server::reap()
{
    Clients done;
    {
        const std::lock_guard lock(m_mutex);
        done.swap(m_finished);
    }
    for (auto& client : done) {
        client.thread.join();
    }
    done.remove_if([](const Client& client) { return !client.session.stays_open(); });
    m_left_open.splice(m_left_open.end(), done);
}

bool Server::end(std::chrono::milliseconds patience)
{
    m_listeners.clear();
    {
        std::unique_lock lock(m_mutex);
        for (auto& client : m_active) {
            client.session.end();
        }
        if (!m_all_finished.wait_for(lock, patience, [this] { return m_active.empty(); })) {
            return false;
        }
    }
    reap();
    return true;
}

size_t Server::clients() const
{
    const std::lock_guard lock(m_mutex);
    return m_active.size();
}

} // namespace orvan_service
