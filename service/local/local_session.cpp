#include "local_session.h"

#include <cerrno>
#include <exception>
#include <new>

#include <sys/socket.h>
#include <syslog.h>

#include "scpi/error.h"

namespace orvan_service {
namespace {

using Found = MessageAssembly::Found;

constexpr ServiceTime kReplyPatience{5000};

// Received at a time, besides as much as a long message already has.
constexpr size_t kPiece = 4000;

/** The process at the other end. */
std::string process_of(int socket)
{
    ucred peer{};
    socklen_t size = sizeof peer;
    ::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size);
    return "process " + std::to_string(peer.pid);
}

} // namespace

LocalSession::LocalSession(orvan_common::UniqueFd socket, StandardInstrument& instrument, Locks& locks,
                           Counters& counters)
    : Session({Protocol::kLocal, process_of(socket.get())}), m_socket(std::move(socket)), m_locks(locks),
      m_session(instrument, {}, [this, &counters](const StandardError& error, std::string_view message) {
          counters.count_error(client(), error, message);
      })
{
    ::syslog(LOG_INFO, "local client %d: connected", m_socket.get());
}

LocalSession::~LocalSession()
{
    ::syslog(LOG_INFO, "local client %d: gone", m_socket.get());
}

Session::Wait LocalSession::advance(ServiceTime now, bool readable)
try {
    switch (flush()) {
    case Sent::kSome:
        if (m_deadline == kNever) {
            m_deadline = now + kReplyPatience;
        }
        return Wait::kRoom;
    case Sent::kBroken:
        return Wait::kOver;
    case Sent::kAll:
        m_deadline = kNever;
    }
    if (m_found == Found::kNothing) {
        m_found = m_assembly.next();
    }
    if (m_found == Found::kNothing && readable) {
        receive();
        m_found = m_assembly.next();
    }
    if (m_found == Found::kNothing) {
        return m_input_ended ? Wait::kOver : Wait::kInput;
    }
    return m_locks.admits(this) ? Wait::kTurn : m_hung_up ? Wait::kOver : Wait::kRetry;
} catch (const std::bad_alloc&) {
    ::syslog(LOG_ERR, "local client %d: closed, no memory", m_socket.get());
    return Wait::kOver;
}

void LocalSession::execute()
{
    if (!m_locks.admits(this)) {
        return; // advance() waits
    }
    if (m_found == Found::kTooLong) {
        m_session.status().add(SCPI_ERROR_INPUT_BUFFER_OVERRUN);
    } else {
        try {
            m_response = m_session.execute(m_assembly.message(), [] { return true; });
        } catch (const std::exception& error) {
            ::syslog(LOG_ERR, "local client %d: %s", m_socket.get(), error.what());
            m_session.status().add(SCPI_ERROR_SYSTEM);
        }
    }
    m_found = Found::kNothing;
    if (m_response.empty()) {
        m_response = '\n';
    }
}

LocalSession::Sent LocalSession::flush()
{
    while (m_sent < m_response.size()) {
        const ssize_t sent = ::send(m_socket.get(), m_response.data() + m_sent, m_response.size() - m_sent,
                                    MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent < 0 && errno == EPIPE) {
            break; // what the client has sent before it closed is still executed
        }
        if (sent < 0) {
            return errno == EAGAIN ? Sent::kSome : Sent::kBroken;
        }
        m_sent += static_cast<size_t>(sent);
    }
    m_response.clear();
    m_sent = 0;
    return Sent::kAll;
}

void LocalSession::receive()
{
    const std::span<char> space = m_assembly.space(m_assembly.pending() + kPiece);
    const ssize_t received = ::recv(m_socket.get(), space.data(), space.size(), MSG_DONTWAIT);
    if (received > 0) {
        m_assembly.received(static_cast<size_t>(received));
    } else if (received == 0 || (errno != EAGAIN && errno != EINTR)) {
        m_input_ended = true;
    }
}

// A client that closes with responses unread has given up, which the system reports as a reset.
Session::HangUp LocalSession::hung_up()
{
    m_hung_up = true;
    int error = 0;
    socklen_t size = sizeof error;
    ::getsockopt(m_socket.get(), SOL_SOCKET, SO_ERROR, &error, &size);
    const bool excluded = m_found != Found::kNothing && !m_locks.admits(this);
    return error != 0 || excluded ? HangUp::kReset : HangUp::kOrderly;
}

void LocalSession::expired()
{
    ::syslog(LOG_NOTICE, "local client %d: closed, it does not read its responses", m_socket.get());
}

} // namespace orvan_service
