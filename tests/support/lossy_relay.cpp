#include "support/lossy_relay.h"

#include <random>
#include <stdexcept>

#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include "support/loopback.h"

namespace orvan_test {
namespace {

sockaddr_in loopback(int port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

} // namespace

LossyRelay::LossyRelay(int server, double loss, double doubling, unsigned seed)
    : m_outer(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
      m_inner(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)), m_stop(::eventfd(0, EFD_CLOEXEC))
{
    const sockaddr_in outer = loopback(0);
    const sockaddr_in inner = loopback(server);
    if (::bind(m_outer, reinterpret_cast<const sockaddr*>(&outer), sizeof outer) != 0 ||
        ::connect(m_inner, reinterpret_cast<const sockaddr*>(&inner), sizeof inner) != 0) {
        throw std::runtime_error("no relay");
    }
    m_port = local_port(m_outer);
    m_thread = std::thread([=, this] { run(loss, doubling, seed); });
}

LossyRelay::~LossyRelay()
{
    ::eventfd_write(m_stop, 1);
    m_thread.join();
    for (const int fd : {m_outer, m_inner, m_stop}) {
        ::close(fd);
    }
}

void LossyRelay::run(double loss, double doubling, unsigned seed)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> part(0, 1);
    const auto copies = [&] {
        if (part(random) < loss) {
            ++m_lost;
            return 0;
        }
        if (part(random) < doubling) {
            ++m_doubled;
            return 2;
        }
        return 1;
    };
    sockaddr_in client{};
    char datagram[2048];
    pollfd waiting[] = {{m_outer, POLLIN, 0}, {m_inner, POLLIN, 0}, {m_stop, POLLIN, 0}};
    while (::poll(waiting, 3, -1) >= 0 && waiting[2].revents == 0) {
        if (waiting[0].revents != 0) {
            socklen_t size = sizeof client;
            const ssize_t count = ::recvfrom(m_outer, datagram, sizeof datagram, MSG_DONTWAIT,
                                             reinterpret_cast<sockaddr*>(&client), &size);
            for (int i = count >= 0 ? copies() : 0; i > 0; --i) {
                ::send(m_inner, datagram, static_cast<size_t>(count), 0);
            }
        }
        if (waiting[1].revents != 0) {
            const ssize_t count = ::recv(m_inner, datagram, sizeof datagram, MSG_DONTWAIT);
            for (int i = count >= 0 ? copies() : 0; i > 0; --i) {
                ::sendto(m_outer, datagram, static_cast<size_t>(count), 0,
                         reinterpret_cast<const sockaddr*>(&client), sizeof client);
            }
        }
    }
}

} // namespace orvan_test
