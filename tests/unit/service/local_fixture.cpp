#include "local_fixture.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace orvan_test {

using namespace orvan_service;

PrivateFolder::PrivateFolder()
{
    std::string name = std::filesystem::temp_directory_path() / "orvan-XXXXXX";
    EXPECT_NE(::mkdtemp(name.data()), nullptr);
    m_path = name;
}

PrivateFolder::~PrivateFolder()
{
    std::filesystem::remove_all(m_path);
}

LocalClient::LocalClient(const std::filesystem::path& socket)
    : m_socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    socket.string().copy(name.sun_path, sizeof name.sun_path - 1);
    EXPECT_EQ(::connect(m_socket.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name), 0)
        << socket << ": " << errno;
}

void LocalClient::send(std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t sent = ::send(m_socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        ASSERT_GT(sent, 0) << errno;
        bytes.remove_prefix(static_cast<size_t>(sent));
    }
}

bool LocalClient::receive(std::chrono::steady_clock::time_point deadline)
{
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    pollfd waiting{m_socket.get(), POLLIN, 0};
    char bytes[65536];
    if (::poll(&waiting, 1, static_cast<int>(std::max<int64_t>(left.count(), 0))) != 1) {
        return false;
    }
    const ssize_t count = ::recv(m_socket.get(), bytes, sizeof bytes, 0);
    m_ended = count <= 0;
    m_received.append(bytes, m_ended ? 0 : static_cast<size_t>(count));
    return !m_ended;
}

std::string LocalClient::line(std::chrono::milliseconds bound)
{
    const auto deadline = std::chrono::steady_clock::now() + bound;
    while (m_received.find('\n') == std::string::npos && receive(deadline)) {
    }
    return bytes(std::min(m_received.find('\n'), m_received.size() - 1) + 1, std::chrono::milliseconds(0));
}

std::string LocalClient::bytes(size_t size, std::chrono::milliseconds bound)
{
    const auto deadline = std::chrono::steady_clock::now() + bound;
    while (m_received.size() < size && receive(deadline)) {
    }
    const std::string taken = m_received.substr(0, size);
    m_received.erase(0, taken.size());
    return taken;
}

std::string LocalClient::rest(std::chrono::milliseconds bound)
{
    const auto deadline = std::chrono::steady_clock::now() + bound;
    while (receive(deadline)) {
    }
    EXPECT_TRUE(m_ended) << "the connection is still open";
    return m_received;
}

std::string LocalClient::ask(std::string_view message)
{
    send(message);
    return line();
}

void LocalClient::finish_sending()
{
    ::shutdown(m_socket.get(), SHUT_WR);
}

RunningLocal::RunningLocal(const std::filesystem::path& folder, StandardInstrument& instrument)
    : m_server({}, m_no_sink, {}), m_local(folder, m_server.executor(), instrument, m_locks),
      m_stop(::eventfd(0, EFD_CLOEXEC))
{
    m_locks.on_change([this] { m_server.executor().retry(); });
    m_attendant = std::thread([this] {
        const std::array<Attended*, 1> others{&m_local};
        m_server.run(m_stop.get(), nullptr, others);
    });
}

void RunningLocal::end()
{
    if (m_attendant.joinable()) {
        ::eventfd_write(m_stop.get(), 1);
        m_attendant.join();
        m_local.end();
    }
}

RunningLocal::~RunningLocal()
{
    end();
    m_server.end(std::chrono::seconds(20));
}

} // namespace orvan_test
