#include "panel_program.h"

#include <cerrno>

#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "support/loopback.h"

namespace {

constexpr int kPanelPort = 8888;
constexpr int kNobody = 1; // a port of tcpmux's, which no machine serves

struct Attempts {
    std::mutex mutex;
    int port = 0;
    size_t count = 0;
    std::vector<std::string> calls;
    int refused_option = 0;
};

// Never destroyed: the bridge's sender runs as long as the process.
Attempts& attempts()
{
    static Attempts* const instance = new Attempts;
    return *instance;
}

} // namespace

extern "C" int connect(int fd, const sockaddr* address, socklen_t size)
{
    static auto* const real =
        reinterpret_cast<int (*)(int, const sockaddr*, socklen_t)>(dlsym(RTLD_NEXT, "connect"));
    const auto* const peer = reinterpret_cast<const sockaddr_in*>(address);
    if (address->sa_family != AF_INET || ntohs(peer->sin_port) != kPanelPort) {
        return real(fd, address, size);
    }
    sockaddr_in instead = *peer;
    {
        std::lock_guard lock(attempts().mutex);
        ++attempts().count;
        const bool closed_in_children = (::fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0;
        attempts().calls.push_back(std::string("connect ") + inet_ntoa(peer->sin_addr) +
                                   (closed_in_children ? "" : ", inherited"));
        const int port = attempts().port != 0 ? attempts().port : kNobody;
        instead.sin_port = htons(static_cast<uint16_t>(port));
    }
    return real(fd, reinterpret_cast<const sockaddr*>(&instead), sizeof instead);
}

extern "C" int setsockopt(int fd, int level, int name, const void* value, socklen_t size) noexcept
{
    static auto* const real =
        reinterpret_cast<int (*)(int, int, int, const void*, socklen_t)>(dlsym(RTLD_NEXT, "setsockopt"));
    if (level == SOL_SOCKET && (name == SO_RCVTIMEO || name == SO_SNDTIMEO)) {
        const auto* const limit = static_cast<const timeval*>(value);
        std::lock_guard lock(attempts().mutex);
        attempts().calls.push_back(std::string(name == SO_RCVTIMEO ? "receive" : "send") + " limit " +
                                   std::to_string(limit->tv_sec * 1000000 + limit->tv_usec));
        if (name == attempts().refused_option) {
            errno = ENOMEM;
            return -1;
        }
    }
    return real(fd, level, name, value, size);
}

namespace orvan_test {

void redirect_panel_port(int port)
{
    std::lock_guard lock(attempts().mutex);
    attempts().port = port;
}

size_t panel_attempts()
{
    std::lock_guard lock(attempts().mutex);
    return attempts().count;
}

std::vector<std::string> panel_calls()
{
    std::lock_guard lock(attempts().mutex);
    return attempts().calls;
}

void refuse_socket_option(int name)
{
    std::lock_guard lock(attempts().mutex);
    attempts().refused_option = name;
}

// All codes of a test find a place in the backlog: one that does not is lost after the bridge's 30 ms.
PanelProgram::PanelProgram()
    : m_listener(listen_on_loopback("127.0.0.1", 2048)), m_thread([this] { serve(); })
{
    redirect_panel_port(local_port(m_listener));
}

PanelProgram::~PanelProgram()
{
    redirect_panel_port(0);
    ::shutdown(m_listener, SHUT_RDWR);
    m_thread.join();
    ::close(m_listener);
}

void PanelProgram::serve()
{
    for (;;) {
        const int fd = ::accept(m_listener, nullptr, nullptr);
        if (fd < 0) {
            return;
        }
        std::string received;
        char bytes[16];
        for (ssize_t count = 0; (count = ::read(fd, bytes, sizeof bytes)) > 0;) {
            received.append(bytes, static_cast<size_t>(count));
        }
        ::close(fd);
        std::lock_guard lock(m_mutex);
        m_connections.push_back(received);
        m_arrived.notify_all();
    }
}

std::vector<std::string> PanelProgram::connections() const
{
    std::lock_guard lock(m_mutex);
    return m_connections;
}

bool PanelProgram::wait_for(size_t count, std::chrono::milliseconds bound) const
{
    std::unique_lock lock(m_mutex);
    return m_arrived.wait_for(lock, bound, [&] { return m_connections.size() >= count; });
}

} // namespace orvan_test
