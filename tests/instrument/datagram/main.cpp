// Sends datagrams from a host of an instrument's network, and prints the replies:
//
//     orvan-datagram 10.0.0.255 7502 1 48454944...
//
// The arguments are an address, possibly a broadcast address, a port, the number of replies to wait for, and
// each datagram in hexadecimal. A reply is a line "10.0.0.2:7502 48454944...".
#include <cstdio>
#include <cstdlib>
#include <string>

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include "support/hex.h"
#include "unique_fd.h"

namespace {

constexpr int kPatienceMs = 5000;

bool receive(int fd)
{
    pollfd waiting = {fd, POLLIN, 0};
    if (::poll(&waiting, 1, kPatienceMs) <= 0) {
        return false;
    }
    unsigned char datagram[2048];
    sockaddr_in from = {};
    socklen_t size = sizeof from;
    const ssize_t received =
        ::recvfrom(fd, datagram, sizeof datagram, 0, reinterpret_cast<sockaddr*>(&from), &size);
    if (received < 0) {
        return false;
    }
    std::printf("%s:%d ", inet_ntoa(from.sin_addr), ntohs(from.sin_port));
    for (ssize_t i = 0; i < received; ++i) {
        std::printf("%02x", datagram[i]);
    }
    std::puts("");
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 4) {
        return 2;
    }
    const orvan_common::UniqueFd fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const int on = 1;
    ::setsockopt(fd.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = inet_addr(argv[1]);
    to.sin_port = htons(static_cast<uint16_t>(std::atoi(argv[2])));
    for (int i = 4; i < argc; ++i) {
        const std::string datagram = orvan_test::from_hex(argv[i]);
        if (::sendto(fd.get(), datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to),
                     sizeof to) < 0) {
            std::perror("orvan-datagram");
            return 1;
        }
    }
    for (int replies = std::atoi(argv[3]); replies > 0; --replies) {
        if (!receive(fd.get())) {
            return 1;
        }
    }
    return 0;
}
