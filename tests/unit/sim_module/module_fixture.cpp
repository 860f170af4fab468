#include "module_fixture.h"

#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <linux/tcp.h> // tcp_info with the count of segments, which netinet/tcp.h lacks
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "support/loopback.h"

Client::Client(const sim_module::Module& module)
    : m_fd(orvan_test::connect_to_loopback(module.address(), module.port()))
{
}

Client::~Client()
{
    if (m_fd >= 0) {
        ::close(m_fd);
    }
}

void Client::send(std::string_view bytes) const
{
    while (!bytes.empty()) {
        const ssize_t sent = ::send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        ASSERT_GT(sent, 0) << std::strerror(errno);
        bytes.remove_prefix(static_cast<size_t>(sent));
    }
}

void Client::end_sending() const
{
    ::shutdown(m_fd, SHUT_WR);
}

std::string Client::reply() const
{
    return orvan_test::read_until(m_fd, "\n");
}

std::string Client::ask(std::string_view request) const
{
    send(request);
    return reply();
}

bool Client::ended_by_peer() const
{
    pollfd waited{m_fd, POLLIN, 0};
    char byte;
    return ::poll(&waited, 1, 5000) == 1 && ::recv(m_fd, &byte, 1, 0) == 0;
}

unsigned Client::segments_received() const
{
    tcp_info info{};
    socklen_t size = sizeof info;
    ::getsockopt(m_fd, IPPROTO_TCP, TCP_INFO, &info, &size);
    return info.tcpi_data_segs_in;
}

void ModuleTest::SetUp()
{
    m_descriptors_before = orvan_test::open_descriptors();
    std::string name = std::filesystem::temp_directory_path() / "orvan-module-XXXXXX";
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    m_directory = name;
    m_control_path = m_directory / "control";

    sim_module::Options options;
    options.address = "127.0.0.1";
    options.control_path = m_control_path;
    options.firmware_port = 0;
    options.restart_time = kRestartTime;
    m_module = std::make_unique<sim_module::Module>(options);
    m_thread = std::thread([this] { m_module->run(); });
}

void ModuleTest::TearDown()
{
    if (m_thread.joinable()) {
        m_module->stop();
        m_thread.join();
    }
    m_module.reset();
    EXPECT_FALSE(std::filesystem::exists(m_control_path));
    std::filesystem::remove_all(m_directory);
    EXPECT_EQ(orvan_test::open_descriptors(), m_descriptors_before);
}

std::string ModuleTest::ask(std::string_view request)
{
    return Client(*m_module).ask(request);
}

std::string ModuleTest::control(const std::string& command)
{
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    std::strncpy(name.sun_path, m_control_path.c_str(), sizeof name.sun_path - 1);
    EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&name), sizeof name), 0) << std::strerror(errno);
    const std::string line = command + "\n";
    EXPECT_EQ(::send(fd, line.data(), line.size(), MSG_NOSIGNAL), static_cast<ssize_t>(line.size()));
    // Half closed, so that the end of the reply shows, even with many lines.
    ::shutdown(fd, SHUT_WR);
    std::string reply;
    char piece[4096];
    for (ssize_t n = ::recv(fd, piece, sizeof piece, 0); n > 0; n = ::recv(fd, piece, sizeof piece, 0)) {
        reply.append(piece, static_cast<size_t>(n));
    }
    ::close(fd);
    EXPECT_TRUE(reply.ends_with('\n')) << reply;
    return reply.substr(0, reply.empty() ? 0 : reply.size() - 1);
}
