#include "scpi_connection.h"

#include <cerrno>
#include <utility>

#include <sys/socket.h>

#include "scpi_server.h"

namespace sim_module {

ScpiConnection::ScpiConnection(ScpiServer& server, orvan_common::UniqueFd socket)
    : m_server(server), m_socket(std::move(socket)), m_events(POLLIN)
{
    m_server.m_loop.watch(m_socket.get(), m_events, *this);
}

ScpiConnection::~ScpiConnection()
{
    m_server.m_loop.cancel(m_timer);
    m_server.m_loop.unwatch(m_socket.get());
}

void ScpiConnection::start()
{
    if (m_server.m_faults.ends_connections()) {
        // Closing with unread bytes would reset the connection; this way the peer sees an orderly close.
        ::shutdown(m_socket.get(), SHUT_WR);
    }
    // Usually the request has arrived with the connection.
    settle(receive());
}

void ScpiConnection::on_ready(short revents)
{
    if ((revents & (POLLERR | POLLHUP)) != 0) {
        settle(State::kGone);
    } else if ((revents & POLLOUT) != 0) {
        settle(resume());
    } else {
        settle(receive());
    }
}

void ScpiConnection::settle(State state)
{
    if (state == State::kGone) {
        m_server.remove(*this);
        return;
    }
    // No request is read while a reply is being sent: a client that does not read its replies is slowed down
    // by its own socket, and nothing accumulates here.
    short events = 0;
    if (!replying()) {
        events = POLLIN;
    } else if (m_timer == 0) {
        events = POLLOUT;
    }
    if (events != m_events) {
        m_events = events;
        m_server.m_loop.change(m_socket.get(), events);
    }
}

ScpiConnection::State ScpiConnection::receive()
{
    auto& buffer = m_server.m_receive_buffer;
    const ssize_t count = ::recv(m_socket.get(), buffer.data(), buffer.size(), 0);
    if (count < 0) {
        return errno == EAGAIN || errno == EINTR ? State::kOpen : State::kGone;
    }
    if (count == 0) {
        // A request without its line end is dropped: it may have lost its last digits with the connection.
        m_peer_ended = true;
    } else {
        m_framer.add({buffer.data(), static_cast<size_t>(count)});
    }
    return serve_requests();
}

ScpiConnection::State ScpiConnection::serve_requests()
{
    State state = State::kOpen;
    while (state == State::kOpen && !replying()) {
        std::string_view request;
        const RequestFramer::Result result = m_framer.next(request);
        if (result == RequestFramer::Result::kNone) {
            return m_peer_ended ? State::kGone : State::kOpen;
        }
        m_server.m_log.add(request);
        const Faults& faults = m_server.m_faults;
        if (faults.ends_connections()) {
            ::shutdown(m_socket.get(), SHUT_WR);
        } else if (faults.executes()) {
            m_pieces = faults.shape(result == RequestFramer::Result::kTooLong
                                        ? m_server.m_executor.refuse_overrun()
                                        : m_server.m_executor.execute(request));
            if (const auto delay = m_server.m_executor.reply_delay()) {
                m_pieces.front().delay += *delay;
            } else {
                m_pieces.clear();
            }
            m_piece = 0;
            state = send_pieces();
        }
    }
    return state;
}

ScpiConnection::State ScpiConnection::send_pieces()
{
    while (replying()) {
        if (m_pieces[m_piece].delay.count() > 0) {
            m_timer = m_server.m_loop.after(m_pieces[m_piece].delay, [this] {
                m_timer = 0;
                m_pieces[m_piece].delay = {};
                settle(resume());
            });
            return State::kOpen;
        }
        std::string& bytes = m_pieces[m_piece].bytes;
        const ssize_t sent = ::send(m_socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0) {
            return errno == EAGAIN || errno == EINTR ? State::kOpen : State::kGone;
        }
        if (static_cast<size_t>(sent) < bytes.size()) {
            bytes.erase(0, static_cast<size_t>(sent));
            return State::kOpen;
        }
        ++m_piece;
    }
    return State::kOpen;
}

ScpiConnection::State ScpiConnection::resume()
{
    const State state = send_pieces();
    return state == State::kOpen ? serve_requests() : state;
}

} // namespace sim_module
