#include <cerrno>
#include <cstring>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include "module_request.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include "orvan_sdk/scpi-parser/scpi_progress.h"

namespace {

constexpr time_t CONNECT_TIMEOUT = 5; // seconds
constexpr time_t RECV_TIMEOUT = 10;   // seconds
constexpr size_t kReplySize = 4096;

// Closes its descriptor, and so ends the request, on every return path.
class Socket {
public:
    // Non-blocking, for connect() with a timeout.
    Socket() : m_fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {}
    ~Socket()
    {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
        scpi_note_progress();
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    int fd() const { return m_fd; }

private:
    int m_fd;
};

// An fd_set ends at descriptor 1023, but the service process has more. select() itself accepts sets of any
// length, so the set consists of as many consecutive fd_set as the descriptor needs.
bool becomes_writable(int fd, time_t seconds)
{
    std::vector<fd_set> writable(static_cast<size_t>(fd / FD_SETSIZE) + 1);
    for (fd_set& part : writable) {
        FD_ZERO(&part);
    }
    FD_SET(fd % FD_SETSIZE, &writable.back());
    timeval timeout{seconds, 0};
    return ::select(fd + 1, nullptr, writable.data(), nullptr, &timeout) == 1;
}

std::string failure(const char* log_text, const char* reply)
{
    ::syslog(LOG_INFO, "%s", log_text);
    return reply;
}

} // namespace

std::string Scpi_Orvanx::SendSCPIOrvanX(const char* buffer, int length, const std::string& ipaddress,
                                        int port)
{
    char server_message[kReplySize] = {};

    const Socket module;
    if (module.fd() < 0) {
        return "-ERR Unable to create socket";
    }

    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(static_cast<uint16_t>(port));
    peer.sin_addr.s_addr = ::inet_addr(ipaddress.c_str());
    if (::connect(module.fd(), reinterpret_cast<const sockaddr*>(&peer), sizeof peer) != 0) {
        if (errno != EINPROGRESS) {
            return failure("Unable to connect\n", "-ERR Unable to connect");
        }
        if (!becomes_writable(module.fd(), CONNECT_TIMEOUT)) {
            return failure("Connection timeout\n", "-ERR Connection timeout");
        }
        int refused = 0;
        socklen_t size = sizeof refused;
        ::getsockopt(module.fd(), SOL_SOCKET, SO_ERROR, &refused, &size);
        if (refused != 0) {
            return failure("Unable to connect (timeout or error)\n", "-ERR Unable to connect");
        }
    }
    ::fcntl(module.fd(), F_SETFL, O_RDWR); // blocking from now on

    const timeval timeout{RECV_TIMEOUT, 0};
    if (::setsockopt(module.fd(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout) != 0) {
        ::syslog(LOG_INFO, "Warning: Unable to set receive timeout\n");
    }

    if (::send(module.fd(), buffer, static_cast<size_t>(length), 0) < 0) {
        return failure("Unable to send message\n", "-ERR Unable to send message");
    }

    // A single read: a module answers in one piece.
    if (::recv(module.fd(), server_message, sizeof server_message, 0) < 0) {
        if (errno == EAGAIN) {
            return failure("Receive timeout occurred\n", "-ERR Receive timeout");
        }
        return failure("Error while receiving server's msg\n", "-ERR Error while receiving server's msg");
    }
    return std::string(server_message, ::strnlen(server_message, sizeof server_message));
}

bool Scpi_Orvanx::checkOrvanReply(const std::string& reply)
{
    if (reply.find("-ERR") == std::string::npos) {
        return true;
    }
    ::syslog(LOG_INFO, "%s: %s", __func__, reply.c_str());
    return false;
}

void Scpi_Orvanx::sendSCPICommandtoOrvanX(char* buffer, int valread, int new_socket)
{
    ::syslog(LOG_INFO, "%s", buffer);
    ::syslog(LOG_INFO, "channel %d printing", m_channelNo);
    if (m_channelNo == 0) {
        m_channelNo = 1;
    }
    ::syslog(LOG_INFO, "[Orvan Service X]: sending command %d", m_channelNo);
    ::syslog(LOG_INFO, "%s", buffer);
    const std::string reply =
        HaldeElec::Orvan::request_module(*this, m_channelNo, {buffer, static_cast<size_t>(valread)});
    ::syslog(LOG_INFO, "[Orvan Service X]: send Scpi end.\n");
    [[maybe_unused]] const ssize_t ignored =
        ::write(new_socket, reply.c_str(), ::strnlen(reply.c_str(), kReplySize));
}
