// usage: orvan-floor-epoll
// Echoes what each recv returns, all clients on one thread that waits for them with epoll.
#include <sys/epoll.h>

#include "floor_server.h"

int main()
{
    ::signal(SIGPIPE, SIG_IGN);
    const int epoll = ::epoll_create1(EPOLL_CLOEXEC);
    const auto wait_for = [epoll](int fd) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = fd;
        ::epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event);
    };
    wait_for(orvan_bench::kListener);
    epoll_event events[64];
    char data[16384];
    while (true) {
        const int ready = ::epoll_wait(epoll, events, 64, -1);
        for (int i = 0; i < ready; ++i) {
            const int fd = events[i].data.fd;
            if (fd == orvan_bench::kListener) {
                const int socket = ::accept4(fd, nullptr, nullptr, SOCK_CLOEXEC);
                const int on = 1;
                ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
                wait_for(socket);
                continue;
            }
            const ssize_t n = ::recv(fd, data, sizeof data, 0);
            if (n > 0) {
                orvan_bench::reply_corked(fd, data, static_cast<size_t>(n));
            } else {
                ::close(fd);
            }
        }
    }
}
