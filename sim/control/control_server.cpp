#include "control_server.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <system_error>
#include <utility>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using orvan_common::UniqueFd;

namespace sim_control {

/** One client of the control socket. */
class ControlConnection : private EventSink {
public:
    ControlConnection(ControlServer& server, UniqueFd socket) : m_server(server), m_socket(std::move(socket))
    {
        m_server.m_loop.watch(m_socket.get(), POLLIN, *this);
    }
    ~ControlConnection() override { m_server.m_loop.unwatch(m_socket.get()); }

    ControlConnection(const ControlConnection&) = delete;
    ControlConnection& operator=(const ControlConnection&) = delete;

private:
    void on_ready(short revents) override
    {
        // A peer that has hung up may have left commands; they are still executed.
        const bool readable = (revents & POLLIN) != 0;
        const bool open = readable ? receive() : (revents & (POLLERR | POLLHUP)) == 0;
        if (!open || !send_replies()) {
            m_server.remove(*this);
            return;
        }
        m_server.m_loop.change(m_socket.get(), m_replies.empty() ? POLLIN : POLLOUT);
    }

    bool receive()
    {
        std::array<char, 4096> buffer;
        const ssize_t count = ::recv(m_socket.get(), buffer.data(), buffer.size(), 0);
        if (count <= 0) {
            return count < 0 && (errno == EAGAIN || errno == EINTR);
        }
        m_line.append(buffer.data(), static_cast<size_t>(count));
        size_t begin = 0;
        for (size_t end = m_line.find('\n'); end != std::string::npos; end = m_line.find('\n', begin)) {
            m_replies += m_server.m_execute(std::string_view(m_line).substr(begin, end - begin));
            begin = end + 1;
        }
        m_line.erase(0, begin);
        return m_line.size() <= ControlServer::kMaxLine;
    }

    bool send_replies()
    {
        if (m_replies.empty()) {
            return true;
        }
        const ssize_t sent = ::send(m_socket.get(), m_replies.data(), m_replies.size(), MSG_NOSIGNAL);
        if (sent < 0) {
            return errno == EAGAIN || errno == EINTR;
        }
        m_replies.erase(0, static_cast<size_t>(sent));
        return true;
    }

    ControlServer& m_server;
    UniqueFd m_socket;
    std::string m_line;
    std::string m_replies;
};

namespace {

[[noreturn]] void throw_errno(const std::string& what, int number)
{
    throw std::system_error(number, std::generic_category(), what);
}

/** True for a socket without a listener. Other files are not ours to remove. */
bool is_left_over(const sockaddr_un& name)
{
    struct stat status = {};
    if (::lstat(name.sun_path, &status) != 0 || !S_ISSOCK(status.st_mode)) {
        return false;
    }
    const UniqueFd probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    return ::connect(probe.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0 &&
           errno == ECONNREFUSED;
}

} // namespace

ControlServer::ControlServer(EventLoop& loop, const std::string& path, Execute execute)
    : m_loop(loop), m_path(path), m_execute(std::move(execute)),
      m_listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
{
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    if (path.size() >= sizeof name.sun_path) {
        throw_errno(path, ENAMETOOLONG);
    }
    std::memcpy(name.sun_path, path.data(), path.size());
    const auto* address = reinterpret_cast<const sockaddr*>(&name);
    if (is_left_over(name)) {
        ::unlink(path.c_str());
    }
    if (::bind(m_listener.get(), address, sizeof name) != 0 || ::listen(m_listener.get(), SOMAXCONN) != 0) {
        throw_errno(path, errno);
    }
    m_loop.watch(m_listener.get(), POLLIN, *this);
}

ControlServer::~ControlServer()
{
    m_loop.unwatch(m_listener.get());
    ::unlink(m_path.c_str());
}

void ControlServer::on_ready(short)
{
    UniqueFd socket(::accept4(m_listener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (socket) {
        auto connection = std::make_unique<ControlConnection>(*this, std::move(socket));
        m_connections.emplace(connection.get(), std::move(connection));
    }
}

void ControlServer::remove(const ControlConnection& connection)
{
    m_connections.erase(&connection);
}

} // namespace sim_control
