#include "server.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <system_error>

#include <poll.h>
#include <sys/socket.h>
#include <syslog.h>

#include "listener.h"
#include "own_sockets.h"

using orvan_common::UniqueFd;

namespace orvan_service {
namespace {

// Pause when the process is out of descriptors: the connection stays pending, so poll() would not block.
constexpr std::chrono::milliseconds kOutOfDescriptorsPause{100};

/** Rounded up, so that the caller does not wake early; never negative. */
std::chrono::milliseconds time_until(HangWatch::Clock::time_point due)
{
    constexpr std::chrono::milliseconds kNone{0};
    constexpr std::chrono::milliseconds kLongest{INT_MAX};
    return std::clamp(std::chrono::ceil<std::chrono::milliseconds>(due - HangWatch::Clock::now()), kNone,
                      kLongest);
}

/** For poll(). */
int poll_time_until(HangWatch::Clock::time_point due)
{
    return due == HangWatch::Clock::time_point::max() ? -1 : static_cast<int>(time_until(due).count());
}

// The executor notices a client that leaves during a command only afterwards; until then it needs no place.
bool is_gone(int socket)
{
    pollfd state{socket, POLLRDHUP, 0};
    char byte;
    // After a reset, what was received before can still be read.
    return ::poll(&state, 1, 0) > 0 && ((state.revents & (POLLHUP | POLLERR)) != 0 ||
                                        ::recv(socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT) <= 0);
}

} // namespace

Server::Server(std::vector<UniqueFd> listeners, MessageSink& sink, const ServerLimits& limits)
    : m_sink(sink), m_limits(limits), m_listeners(std::move(listeners)),
      m_memory(limits.max_message, std::max(limits.message_budget, limits.max_message))
{
}

void Server::run(int stop, HangWatch* watch, std::span<Attended* const> others)
{
    // poll() ignores negative descriptors.
    std::vector<pollfd> waiting{{stop, POLLIN, 0}, {watch ? watch->descriptor() : -1, POLLIN, 0}};
    const size_t first_of_others = waiting.size();
    std::vector<size_t> ends; // in `waiting`, of each of the others
    while (true) {
        auto due = watch ? watch->due() : Attended::Clock::time_point::max();
        waiting.resize(first_of_others);
        ends.clear();
        for (Attended* const other : others) {
            other->add_descriptors(waiting);
            ends.push_back(waiting.size());
            due = std::min(due, other->due());
        }
        const size_t listeners = waiting.size();
        if (m_out_of_descriptors) {
            due = std::min(due, Attended::Clock::now() + kOutOfDescriptorsPause);
        } else {
            for (const auto& listener : m_listeners) {
                waiting.push_back({listener.get(), POLLIN, 0});
            }
        }
        const int ready = ::poll(waiting.data(), waiting.size(), poll_time_until(due));
        if (ready < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
        if (ready < 0) {
            for (pollfd& descriptor : waiting) {
                descriptor.revents = 0;
            }
        }
        m_out_of_descriptors = false;
        if (waiting[0].revents != 0) {
            return;
        }
        if (watch && (waiting[1].revents != 0 || time_until(watch->due()).count() == 0)) {
            watch->check(HangWatch::Clock::now());
        }
        size_t begin = first_of_others;
        for (size_t i = 0; i < others.size(); begin = ends[i++]) {
            const std::span<const pollfd> of_other(waiting.data() + begin, ends[i] - begin);
            const auto is_ready = [](const pollfd& descriptor) { return descriptor.revents != 0; };
            if (std::any_of(of_other.begin(), of_other.end(), is_ready) ||
                others[i]->due() <= Attended::Clock::now()) {
                others[i]->serve(of_other);
            }
        }
        for (size_t i = listeners; i < waiting.size(); ++i) {
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
    default: // the client is gone again, or a signal arrived
        break;
    }
}

void Server::serve(UniqueFd socket)
{
    if (!has_place_for(socket.get())) {
        refuse(socket.get(), "Too many clients");
        return;
    }
    try {
        m_executor.add(std::make_unique<RawSession>(std::move(socket), m_sink, m_memory,
                                                    m_executor.counters(), m_limits.raw));
    } catch (const std::exception& error) {
        ::syslog(LOG_ERR, "client: %s", error.what());
    }
}

bool Server::has_place_for(int socket) const
{
    const size_t sessions = m_executor.sessions();
    if (sessions < m_limits.max_clients) {
        return true;
    }
    const OwnSockets sockets;
    size_t raw = 0; // other protocols have places of their own
    size_t own = 0;
    const size_t others = m_executor.count([&](const Session& session) {
        if (dynamic_cast<const RawSession*>(&session) == nullptr) {
            return false;
        }
        ++raw;
        const bool is_own = sockets.at_other_end_of(session.descriptor());
        own += is_own ? 1 : 0;
        return !is_own && !is_gone(session.descriptor());
    });
    // Even uncounted connections must not exhaust the descriptors.
    if (raw >= 2 * m_limits.max_clients + m_limits.own_places) {
        return false;
    }
    const size_t kept = std::min(own, m_limits.own_places);
    return (others + own - kept < m_limits.max_clients && raw < 2 * m_limits.max_clients) ||
           (kept < m_limits.own_places && sockets.at_other_end_of(socket));
}

void Server::refuse(int socket, const char* reason)
{
    m_executor.counters().count_refused(Protocol::kRaw);
    ::syslog(LOG_WARNING, "client refused: %s", reason);
    const std::string reply = std::string("-ERR ") + reason + ";+OK\r\n";
    ::send(socket, reply.data(), reply.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    ::shutdown(socket, SHUT_WR);
    discard_input(socket);
}

bool Server::end(std::chrono::milliseconds patience, HangWatch* watch)
{
    const auto deadline = HangWatch::Clock::now() + patience;
    while (true) {
        if (watch && time_until(watch->due()).count() == 0) {
            watch->check(HangWatch::Clock::now());
        }
        const auto left = time_until(deadline);
        if (m_executor.end(watch ? std::min(left, time_until(watch->due())) : left)) {
            return true;
        }
        if (left.count() == 0) {
            return false;
        }
    }
}

} // namespace orvan_service
