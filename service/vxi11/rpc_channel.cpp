#include "rpc_channel.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>

#include <netinet/tcp.h>
#include <sys/socket.h>
#include <syslog.h>

#include "rpc_message.h"
#include "service/listener.h"

namespace orvan_service {
namespace {

constexpr size_t kReceive = 64 * 1024; // bytes a connection may deliver before the others have their turn

// Pause when the process is out of descriptors: the connection stays pending.
constexpr std::chrono::milliseconds kOutOfDescriptorsPause{100};

// A dead peer is noticed after 60 s: 30 s of silence and three probes.
constexpr int kKeepIdle = 30;
constexpr int kKeepInterval = 10;
constexpr int kKeepCount = 3;
constexpr int kUserTimeout = 120'000; // milliseconds: the same with a reply on its way, when keepalive pauses

void prepare(int socket)
{
    const auto set = [socket](int level, int option, int value) {
        ::setsockopt(socket, level, option, &value, sizeof value);
    };
    set(IPPROTO_TCP, TCP_NODELAY, 1);
    set(SOL_SOCKET, SO_KEEPALIVE, 1);
    set(IPPROTO_TCP, TCP_KEEPIDLE, kKeepIdle);
    set(IPPROTO_TCP, TCP_KEEPINTVL, kKeepInterval);
    set(IPPROTO_TCP, TCP_KEEPCNT, kKeepCount);
    set(IPPROTO_TCP, TCP_USER_TIMEOUT, kUserTimeout);
}

} // namespace

RpcChannel::RpcChannel(orvan_common::UniqueFd listener, uint32_t program, const RpcChannelLimits& limits,
                       RpcProgram& procedures)
    : m_listener(std::move(listener)), m_number(program), m_limits(limits), m_procedures(procedures)
{
}

std::string RpcChannel::peer(const RpcCaller& caller) const
{
    const auto place = m_connections.find(caller.connection);
    return place == m_connections.end() ? "?" : peer_address(place->second.socket.get());
}

uint16_t RpcChannel::port() const
{
    return port_of(m_listener.get());
}

void RpcChannel::add_descriptors(std::vector<pollfd>& waiting)
{
    if (m_pause_end <= Clock::now()) {
        m_pause_end = Clock::time_point::max();
    }
    const bool accepts = m_pause_end == Clock::time_point::max();
    waiting.push_back({accepts ? m_listener.get() : -1, POLLIN, 0});
    m_waiting.clear();
    for (const auto& [id, connection] : m_connections) {
        const bool sends = !connection.output.empty();
        waiting.push_back({connection.socket.get(), static_cast<short>(sends ? POLLOUT : POLLIN), 0});
        m_waiting.push_back(id);
    }
}

void RpcChannel::serve(std::span<const pollfd> waiting)
{
    for (size_t i = 0; i < m_waiting.size(); ++i) {
        const auto place = m_connections.find(m_waiting[i]);
        const short events = waiting[i + 1].revents;
        if (events == 0 || place == m_connections.end()) {
            continue;
        }
        Connection& connection = place->second;
        try {
            if (!connection.output.empty()) {
                flush(connection);
            } else {
                receive(connection);
            }
            take_calls(place->first, connection);
        } catch (const std::exception& error) {
            ::syslog(LOG_ERR, "VXI-11: connection closed: %s", error.what());
            connection.over = true;
        }
    }
    for (auto place = m_connections.begin(); place != m_connections.end();) {
        if (place->second.over) {
            const uint64_t id = place->first;
            place = m_connections.erase(place);
            m_procedures.connection_ended(id);
        } else {
            ++place;
        }
    }
    if (waiting[0].revents != 0) {
        accept_connection();
    }
}

void RpcChannel::accept_connection()
{
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    orvan_common::UniqueFd socket(
        ::accept4(m_listener.get(), reinterpret_cast<sockaddr*>(&peer), &size, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket) {
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
            ::syslog(LOG_ERR, "VXI-11: accept: %s", std::strerror(errno));
            m_pause_end = Clock::now() + kOutOfDescriptorsPause;
        }
        return;
    }
    prepare(socket.get());
    if (m_connections.size() >= m_limits.connections) {
        make_room();
    }
    if (m_connections.size() < m_limits.connections) {
        m_connections.try_emplace(++m_last, Connection{std::move(socket),
                                                       peer.sin_addr.s_addr,
                                                       RpcRecordBuffer(m_limits.longest_record),
                                                       {},
                                                       {},
                                                       Clock::now()});
    }
}

/** Closes the connection that has been of no use for the longest time. */
void RpcChannel::make_room()
{
    auto oldest = m_connections.end();
    for (auto place = m_connections.begin(); place != m_connections.end(); ++place) {
        if (!m_procedures.needs(place->first) &&
            (oldest == m_connections.end() || place->second.last_call < oldest->second.last_call)) {
            oldest = place;
        }
    }
    if (oldest != m_connections.end()) {
        ::syslog(LOG_WARNING, "VXI-11: too many connections: one that was not in use is closed");
        const uint64_t id = oldest->first;
        m_connections.erase(oldest);
        m_procedures.connection_ended(id);
    }
}

void RpcChannel::receive(Connection& connection)
{
    char bytes[kReceive];
    const ssize_t received = ::recv(connection.socket.get(), bytes, sizeof bytes, 0);
    if (received > 0) {
        connection.received.append(bytes, static_cast<size_t>(received));
    } else if (received == 0 || (errno != EAGAIN && errno != EINTR)) {
        connection.over = true;
    }
}

void RpcChannel::take_calls(uint64_t id, Connection& connection)
{
    std::string_view rest = connection.received;
    while (!connection.over && connection.output.empty() && !rest.empty()) {
        switch (connection.records.take(rest)) {
        case RpcRecordBuffer::State::kUnfinished:
            break;
        case RpcRecordBuffer::State::kComplete:
            answer(id, connection);
            break;
        case RpcRecordBuffer::State::kTooLong:
            ::syslog(LOG_WARNING, "VXI-11: connection closed: an RPC record is too long");
            connection.over = true;
            break;
        }
    }
    connection.received.erase(0, connection.received.size() - rest.size());
}

void RpcChannel::answer(uint64_t id, Connection& connection)
{
    const auto call = RpcCall::of(connection.records.record());
    if (!call) {
        ::syslog(LOG_WARNING, "VXI-11: connection closed: what it sent is no RPC call");
        connection.over = true;
        return;
    }
    connection.last_call = Clock::now();
    if (call->program != m_number) {
        send(connection, rpc_refusal(call->xid, PROG_UNAVAIL));
    } else if (call->version != 1) {
        send(connection, rpc_refusal(call->xid, PROG_MISMATCH));
    } else if (call->procedure == NULLPROC) {
        send(connection, rpc_reply(call->xid, {}));
    } else {
        switch (m_procedures.call({id, connection.address, call->xid}, call->procedure, call->arguments)) {
        case RpcProgram::Outcome::kTaken:
            break;
        case RpcProgram::Outcome::kNoProcedure:
            send(connection, rpc_refusal(call->xid, PROC_UNAVAIL));
            break;
        case RpcProgram::Outcome::kBadArguments:
            send(connection, rpc_refusal(call->xid, GARBAGE_ARGS));
            break;
        }
    }
}

void RpcChannel::reply(const RpcCaller& caller, std::string_view results)
{
    const auto place = m_connections.find(caller.connection);
    if (place != m_connections.end()) {
        send(place->second, rpc_reply(caller.xid, results));
    }
}

void RpcChannel::send(Connection& connection, std::string_view bytes)
{
    const bool was_sent = connection.output.empty();
    connection.output.append(bytes);
    // The rest goes when there is room; only then calls are taken again.
    if (was_sent) {
        flush(connection);
    }
}

void RpcChannel::flush(Connection& connection)
{
    const ssize_t sent =
        ::send(connection.socket.get(), connection.output.data(), connection.output.size(), MSG_NOSIGNAL);
    if (sent > 0) {
        connection.output.erase(0, static_cast<size_t>(sent));
    } else if (sent < 0 && errno != EAGAIN && errno != EINTR) {
        connection.over = true;
    }
}

} // namespace orvan_service
