#include "hislip_server.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <unordered_map>

#include <netinet/in.h>
#include <strings.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <syslog.h>

#include "sync_stream.h"

namespace orvan_service {

using namespace hislip;

namespace {

constexpr uint16_t kVersion = 0x0200;
constexpr uint32_t kVendor = 'H' << 8 | 'E'; // in AsyncInitializeResponse

// Connections that have not said what they are: more would only be an attack, and the oldest goes.
constexpr size_t kMostEntrants = 64;

// Pause when the process is out of descriptors: the connection stays pending, so poll() would not block.
constexpr std::chrono::milliseconds kOutOfDescriptorsPause{100};

bool same_host(int first, int second)
{
    const auto host = [](int socket) {
        sockaddr_storage name{};
        socklen_t size = sizeof name;
        if (::getpeername(socket, reinterpret_cast<sockaddr*>(&name), &size) != 0) {
            return std::string();
        }
        if (name.ss_family == AF_INET6) {
            const auto& address = reinterpret_cast<const sockaddr_in6&>(name).sin6_addr;
            return std::string(reinterpret_cast<const char*>(&address), sizeof address);
        }
        const auto& address = reinterpret_cast<const sockaddr_in&>(name).sin_addr;
        return std::string(reinterpret_cast<const char*>(&address), sizeof address);
    };
    const std::string one = host(first);
    return !one.empty() && one == host(second);
}

} // namespace

HislipServer::HislipServer(std::vector<orvan_common::UniqueFd> listeners, Executor& executor,
                           StandardInstrument& instrument, Locks& locks)
    : m_listeners(std::move(listeners)), m_executor(executor),
      m_environment{instrument, locks, executor.counters(), [&executor] { executor.retry(); }},
      m_wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!m_wake) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

HislipServer::~HislipServer() = default;

void HislipServer::wake()
{
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(m_wake.get(), &one, sizeof one);
}

void HislipServer::add_descriptors(std::vector<pollfd>& waiting)
{
    waiting.push_back({m_wake.get(), POLLIN, 0});
    if (m_pause_end <= Clock::now()) {
        m_pause_end = Clock::time_point::max();
    }
    const bool accepts = m_pause_end == Clock::time_point::max();
    for (const orvan_common::UniqueFd& listener : m_listeners) {
        waiting.push_back({accepts ? listener.get() : -1, POLLIN, 0});
    }
    for (const Entrant& entrant : m_entrants) {
        waiting.push_back({entrant.socket(), POLLIN, 0});
    }
    for (const HalfOpen& session : m_half_open) {
        waiting.push_back({session.sync.get(), POLLIN, 0});
    }
    for (AsyncChannel& channel : m_channels) {
        waiting.push_back({channel.connection().async(), channel.events(), 0});
        if (const short events = channel.connection().clear_events()) {
            waiting.push_back({channel.connection().sync(), events, 0});
        }
    }
}

void HislipServer::serve(std::span<const pollfd> waiting)
{
    std::unordered_map<int, short> ready;
    for (const pollfd& descriptor : waiting) {
        if (descriptor.revents != 0) {
            ready.emplace(descriptor.fd, descriptor.revents);
        }
    }
    const auto is_ready = [&](int fd) { return ready.contains(fd); };
    uint64_t count;
    [[maybe_unused]] const ssize_t read = ::read(m_wake.get(), &count, sizeof count);

    const auto now = Clock::now();
    m_channels.remove_if([&](AsyncChannel& channel) {
        Connection& connection = channel.connection();
        if (connection.closed() || (is_ready(connection.async()) && !channel.serve())) {
            return true;
        }
        if (is_ready(connection.sync())) {
            connection.continue_clear();
        }
        channel.retry(now);
        return false;
    });
    m_half_open.remove_if(
        [&](HalfOpen& session) { return !serve_half_open(session, is_ready(session.sync.get())); });
    m_entrants.remove_if([&](Entrant& entrant) {
        if (is_ready(entrant.socket())) {
            return !receive(entrant);
        }
        return now >= entrant.deadline();
    });
    for (const orvan_common::UniqueFd& listener : m_listeners) {
        if (is_ready(listener.get())) {
            accept_clients(listener.get());
        }
    }
}

HislipServer::Clock::time_point HislipServer::due() const
{
    auto due = m_pause_end;
    for (const Entrant& entrant : m_entrants) {
        due = std::min(due, entrant.deadline());
    }
    for (const HalfOpen& session : m_half_open) {
        due = std::min(due, session.deadline);
    }
    for (const AsyncChannel& channel : m_channels) {
        due = std::min(due, channel.due());
    }
    return due;
}

void HislipServer::accept_clients(int listener)
{
    orvan_common::UniqueFd socket(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
    if (!socket) {
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
            ::syslog(LOG_ERR, "hislip: accept: %s", std::strerror(errno));
            m_pause_end = Clock::now() + kOutOfDescriptorsPause;
        }
        return;
    }
    if (m_entrants.size() >= kMostEntrants) {
        m_entrants.pop_front();
    }
    m_entrants.emplace_back(std::move(socket));
}

/** @return whether it remains an entrant */
bool HislipServer::receive(Entrant& entrant)
{
    switch (entrant.receive()) {
    case Entrant::State::kOpen:
        return true;
    case Entrant::State::kBroken:
        return false;
    case Entrant::State::kWhole:
        break;
    }
    if (entrant.frame().type == Type::kInitialize) {
        initialize(entrant);
    } else if (entrant.frame().type == Type::kAsyncInitialize) {
        initialize_async(entrant);
    } else {
        entrant.refuse(Fatal::kBadInitialization, "invalid initialization sequence");
    }
    return false;
}

void HislipServer::initialize(Entrant& entrant)
{
    if (!entrant.payload().empty() && ::strcasecmp(entrant.payload().c_str(), "hislip0") != 0) {
        entrant.refuse(Fatal::kBadInitialization, "unknown sub-address");
    } else if (sessions() >= kMostSessions) {
        m_executor.counters().count_refused(Protocol::kHislip);
        entrant.refuse(Fatal::kTooManyClients, "too many clients");
    } else {
        const auto version = std::min(kVersion, static_cast<uint16_t>(entrant.frame().parameter >> 16));
        const uint16_t id = free_id();
        entrant.send({Type::kInitializeResponse, 0, uint32_t{version} << 16 | id});
        m_half_open.push_back({id, entrant.take_socket(), Clock::now() + kEntrancePatience});
    }
}

void HislipServer::initialize_async(Entrant& entrant)
{
    const auto session = std::find_if(m_half_open.begin(), m_half_open.end(), [&](const HalfOpen& half) {
        return half.id == entrant.frame().parameter;
    });
    if (session == m_half_open.end() || !same_host(session->sync.get(), entrant.socket())) {
        entrant.refuse(Fatal::kBadInitialization, "unknown session");
        return;
    }
    entrant.send({Type::kAsyncInitializeResponse, 0, kVendor});
    const auto connection = std::make_shared<Connection>(m_environment, session->id, std::move(session->sync),
                                                         entrant.take_socket());
    m_half_open.erase(session);
    m_channels.emplace_back(m_environment, connection);
    try {
        m_executor.add(std::make_unique<SyncStream>(connection));
    } catch (const std::exception& error) {
        ::syslog(LOG_ERR, "hislip %u: closed, %s", connection->id(), error.what());
        connection->close(); // serve() removes its other channel
    }
}

/** @return whether it still waits for its second channel */
bool HislipServer::serve_half_open(HalfOpen& session, bool readable)
{
    const bool late = Clock::now() >= session.deadline;
    if (readable || late) {
        const Entrant entrant(std::move(session.sync));
        entrant.refuse(Fatal::kChannelMissing, late ? "its second channel did not come in time"
                                                    : "the connection has only one channel");
        return false;
    }
    return true;
}

uint16_t HislipServer::free_id()
{
    const auto is_used = [this](uint16_t id) {
        return std::any_of(m_half_open.begin(), m_half_open.end(),
                           [id](const HalfOpen& session) { return session.id == id; }) ||
               std::any_of(m_channels.begin(), m_channels.end(),
                           [id](AsyncChannel& channel) { return channel.connection().id() == id; });
    };
    do {
        ++m_last_id;
    } while (is_used(m_last_id));
    return m_last_id;
}

} // namespace orvan_service
