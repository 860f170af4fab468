#include "local_server.h"

#include <exception>
#include <memory>

#include <syslog.h>

#include "local_session.h"

namespace orvan_service {
namespace {

// The executor notices a client that leaves during a command only afterwards. Until then it needs no place,
// but there must not be any number of them.
constexpr size_t kMostConnections = 4 * LocalServer::kMostClients;

bool is_gone(int socket)
{
    pollfd state{socket, 0, 0};
    return ::poll(&state, 1, 0) > 0 && (state.revents & (POLLHUP | POLLERR)) != 0;
}

} // namespace

LocalServer::LocalServer(const std::string& folder, Executor& executor, StandardInstrument& instrument,
                         Locks& locks)
    : m_executor(executor), m_instrument(instrument), m_locks(locks)
{
    if (folder.empty()) {
        return;
    }
    try {
        m_socket.emplace(folder, "scpi.sock");
        ::syslog(LOG_NOTICE, "local clients: listening on %s", m_socket->path().c_str());
    } catch (const std::exception& error) {
        ::syslog(LOG_WARNING, "no local clients: %s", error.what());
    }
}

void LocalServer::add_descriptors(std::vector<pollfd>& waiting)
{
    if (m_socket) {
        waiting.push_back(m_socket->waiting());
    }
}

void LocalServer::serve(std::span<const pollfd> waiting)
{
    if (waiting.empty() || waiting.front().revents == 0) {
        return;
    }
    orvan_common::UniqueFd client = m_socket->accept();
    if (!client) {
        return;
    }
    if (!has_place()) {
        m_executor.counters().count_refused(Protocol::kLocal);
        ::syslog(LOG_WARNING, "local client refused: Too many clients");
        return;
    }
    try {
        m_executor.add(
            std::make_unique<LocalSession>(std::move(client), m_instrument, m_locks, m_executor.counters()));
    } catch (const std::exception& error) {
        ::syslog(LOG_ERR, "local client: %s", error.what());
    }
}

LocalServer::Clock::time_point LocalServer::due() const
{
    return m_socket ? m_socket->due() : Clock::time_point::max();
}

bool LocalServer::has_place() const
{
    size_t connections = 0;
    const size_t clients = m_executor.count([&](const Session& session) {
        if (dynamic_cast<const LocalSession*>(&session) == nullptr) {
            return false;
        }
        ++connections;
        return !is_gone(session.descriptor());
    });
    return clients < kMostClients && connections < kMostConnections;
}

void LocalServer::end()
{
    m_socket.reset();
}

} // namespace orvan_service
