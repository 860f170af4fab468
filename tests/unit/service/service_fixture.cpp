#include "service_fixture.h"

#include <signal.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include "service/listener.h"
#include "service/process.h"
#include "support/loopback.h"

using orvan_common::UniqueFd;

namespace orvan_test {

RecordingSink::RecordingSink(Handler handler) : m_handler(handler ? std::move(handler) : answer) {}

void RecordingSink::answer(int socket, const std::string& message)
{
    const std::string reply = message.substr(0, message.find_last_not_of("\r\n") + 1) + ";+OK\r\n";
    [[maybe_unused]] const ssize_t written = ::write(socket, reply.data(), reply.size());
}

void RecordingSink::execute(int socket, char* data, size_t len)
{
    const std::string message(data, len);
    {
        std::unique_lock lock(m_mutex);
        m_overlaps += m_at_work++ > 0 ? 1 : 0;
        m_messages.push_back(message);
        m_opened.wait(lock, [this] { return !m_shut; });
    }
    m_handler(socket, message);
    const std::lock_guard lock(m_mutex);
    --m_at_work;
}

void RecordingSink::client_lost(int socket)
{
    const std::lock_guard lock(m_mutex);
    m_lost.push_back(socket);
}

void RecordingSink::shut()
{
    const std::lock_guard lock(m_mutex);
    m_shut = true;
}

void RecordingSink::open()
{
    const std::lock_guard lock(m_mutex);
    m_shut = false;
    m_opened.notify_all();
}

std::vector<std::string> RecordingSink::messages() const
{
    const std::lock_guard lock(m_mutex);
    return m_messages;
}

std::vector<int> RecordingSink::lost() const
{
    const std::lock_guard lock(m_mutex);
    return m_lost;
}

size_t RecordingSink::overlaps() const
{
    const std::lock_guard lock(m_mutex);
    return m_overlaps;
}

size_t RecordingSink::at_work() const
{
    const std::lock_guard lock(m_mutex);
    return m_at_work;
}

RunningServer::RunningServer(orvan_service::MessageSink& sink, const orvan_service::ServerLimits& limits,
                             orvan_service::HangWatch* watch)
    : RunningServer(sink, limits, watch, orvan_service::open_listeners("127.0.0.1", 0))
{
}

RunningServer::RunningServer(orvan_service::MessageSink& sink, const orvan_service::ServerLimits& limits,
                             orvan_service::HangWatch* watch, std::vector<UniqueFd> listeners)
    : m_port(local_port(listeners.front().get())), m_server(std::move(listeners), sink, limits),
      m_stop(::eventfd(0, EFD_CLOEXEC))
{
    orvan_service::ignore_broken_pipes();
    m_thread = std::thread([this, watch] { m_server.run(m_stop.get(), watch); });
}

RunningServer::~RunningServer()
{
    stop_accepting();
    EXPECT_TRUE(m_server.end(std::chrono::seconds(30)));
}

void RunningServer::stop_accepting()
{
    if (m_thread.joinable()) {
        const uint64_t one = 1;
        EXPECT_EQ(::write(m_stop.get(), &one, sizeof one), ssize_t{sizeof one});
        m_thread.join();
    }
}

TestClient::TestClient(int port, int receive_buffer, const std::string& from)
    : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    if (receive_buffer > 0) {
        ::setsockopt(m_socket.get(), SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    if (!from.empty()) {
        address.sin_addr.s_addr = ::inet_addr(from.c_str());
        EXPECT_EQ(::bind(m_socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(::connect(m_socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
}

void TestClient::send(const std::string& bytes)
{
    size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t n = ::send(m_socket.get(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) {
            return;
        }
        sent += static_cast<size_t>(n);
    }
}

std::string TestClient::line(std::chrono::milliseconds bound)
{
    const auto deadline = std::chrono::steady_clock::now() + bound;
    size_t end;
    while ((end = m_received.find("\r\n")) == std::string::npos) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd waiting{m_socket.get(), POLLIN, 0};
        char piece[65536];
        ssize_t n = 0;
        if (left.count() > 0 && ::poll(&waiting, 1, static_cast<int>(left.count())) > 0) {
            n = ::recv(m_socket.get(), piece, sizeof piece, 0);
        }
        if (n <= 0) {
            return std::exchange(m_received, {});
        }
        m_received.append(piece, static_cast<size_t>(n));
    }
    std::string result = m_received.substr(0, end + 2);
    m_received.erase(0, end + 2);
    return result;
}

std::string TestClient::ask(const std::string& message)
{
    send(message);
    return line();
}

void TestClient::finish_sending()
{
    ::shutdown(m_socket.get(), SHUT_WR);
}

bool TestClient::sees_end(std::chrono::milliseconds bound)
{
    return eventually(
        [this] {
            char byte;
            const ssize_t n = ::recv(m_socket.get(), &byte, 1, MSG_DONTWAIT);
            return n == 0 || (n < 0 && errno == ECONNRESET);
        },
        bound);
}

void TestClient::reset()
{
    const linger at_once{1, 0};
    ::setsockopt(m_socket.get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    m_socket = {};
}

// The child creates the sockets itself, so that they never belong to this process.
OtherProcess::OtherProcess(int port, int connections)
{
    int ends[2];
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    m_received = UniqueFd(ends[0]);
    const UniqueFd to_us(ends[1]);
    m_pid = ::fork();
    if (m_pid == 0) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        int first = -1;
        for (int i = 0; i < connections; ++i) {
            const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
            static_cast<void>(::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address));
            first = first < 0 ? socket : first;
        }
        char bytes[256];
        for (ssize_t n; (n = ::recv(first, bytes, sizeof bytes, 0)) > 0;) {
            [[maybe_unused]] const ssize_t written = ::write(to_us.get(), bytes, static_cast<size_t>(n));
        }
        ::_exit(0);
    }
    EXPECT_GT(m_pid, 0);
}

OtherProcess::~OtherProcess()
{
    if (m_pid > 0) {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }
}

std::string OtherProcess::first_line() const
{
    return read_until(m_received.get(), "\r\n", std::chrono::seconds(10));
}

} // namespace orvan_test
