#include "maintenance_peer.h"

#include <stdexcept>
#include <utility>

#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include "support/loopback.h"

namespace orvan_test {

MaintenancePeer::MaintenancePeer(InstrumentModel& model, std::function<int(size_t)> answers, int port)
    : m_model(model), m_answers(std::move(answers)),
      m_socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)), m_stop(::eventfd(0, EFD_CLOEXEC))
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(port != 0 ? INADDR_ANY : INADDR_LOOPBACK);
    const int on = 1;
    ::setsockopt(m_socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (::bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        throw std::runtime_error("no peer");
    }
    // As small as an instrument's.
    const int room = 2880;
    ::setsockopt(m_socket, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
    m_port = local_port(m_socket);
    m_thread = std::thread([this] { run(); });
}

MaintenancePeer::~MaintenancePeer()
{
    stop();
    ::close(m_socket);
    ::close(m_stop);
}

void MaintenancePeer::stop()
{
    if (!m_thread.joinable()) {
        return;
    }
    ::eventfd_write(m_stop, 1);
    m_thread.join();
}

void MaintenancePeer::run()
{
    uint8_t datagram[2048];
    pollfd waiting[] = {{m_socket, POLLIN, 0}, {m_stop, POLLIN, 0}};
    while (::poll(waiting, 2, -1) >= 0 && waiting[1].revents == 0) {
        sockaddr_in from{};
        socklen_t size = sizeof from;
        const ssize_t count = ::recvfrom(m_socket, datagram, sizeof datagram, MSG_DONTWAIT,
                                         reinterpret_cast<sockaddr*>(&from), &size);
        if (count < 0) {
            continue;
        }
        const std::span<const uint8_t> request(datagram, static_cast<size_t>(count));
        const int copies = m_answers ? m_answers(requests.size()) : 1;
        requests.emplace_back(request.begin(), request.end());
        for (const Bytes& reply : m_model.serve(request)) {
            for (int i = 0; i < copies; ++i) {
                ::sendto(m_socket, reply.data(), reply.size(), 0, reinterpret_cast<const sockaddr*>(&from),
                         size);
            }
        }
    }
}

} // namespace orvan_test
