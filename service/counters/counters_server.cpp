#include "counters_server.h"

#include <algorithm>
#include <cerrno>
#include <exception>

#include <sys/socket.h>
#include <syslog.h>

namespace orvan_service {

CountersServer::CountersServer(const std::string& folder, Document document) : m_document(std::move(document))
{
    if (folder.empty()) {
        return;
    }
    try {
        m_socket.emplace(folder, "counters.sock");
    } catch (const std::exception& error) {
        ::syslog(LOG_WARNING, "no counters: %s", error.what());
    }
}

void CountersServer::add_descriptors(std::vector<pollfd>& waiting)
{
    if (!m_socket) {
        return;
    }
    waiting.push_back(m_socket->waiting());
    for (const Reader& reader : m_readers) {
        waiting.push_back({reader.socket.get(), POLLOUT, 0});
    }
}

void CountersServer::serve(std::span<const pollfd> waiting)
{
    if (waiting.empty()) {
        return;
    }
    auto descriptor = waiting.begin() + 1;
    m_readers.remove_if([&, now = Clock::now()](Reader& reader) {
        return (descriptor++->revents != 0 && !send(reader)) || reader.deadline <= now;
    });
    if (waiting.front().revents != 0) {
        accept();
    }
}

void CountersServer::accept()
{
    orvan_common::UniqueFd socket = m_socket->accept();
    if (!socket) {
        return;
    }
    try {
        Reader reader{std::move(socket), m_document()};
        if (send(reader)) {
            if (m_readers.size() == kMostReaders) {
                m_readers.pop_front();
            }
            m_readers.push_back(std::move(reader));
        }
    } catch (const std::exception& error) {
        ::syslog(LOG_ERR, "counters: %s", error.what());
    }
}

/** @return whether there is more to send */
bool CountersServer::send(Reader& reader)
{
    const ssize_t sent = ::send(reader.socket.get(), reader.document.data() + reader.sent,
                                reader.document.size() - reader.sent, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0) {
        return errno == EAGAIN || errno == EINTR;
    }
    reader.sent += static_cast<size_t>(sent);
    return reader.sent < reader.document.size();
}

CountersServer::Clock::time_point CountersServer::due() const
{
    auto due = m_socket ? m_socket->due() : Clock::time_point::max();
    for (const Reader& reader : m_readers) {
        due = std::min(due, reader.deadline);
    }
    return due;
}

} // namespace orvan_service
