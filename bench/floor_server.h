/**
 * The bare server under every floor: a thread for each client, no delay, one corked write per reply.
 *
 * It measures the cost of the socket work alone: there are no checks and no limits.
 */
#ifndef ORVAN_BENCH_FLOOR_SERVER_H
#define ORVAN_BENCH_FLOOR_SERVER_H

#include <cstddef>
#include <signal.h>
#include <thread>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace orvan_bench {

constexpr int kListener = 3; // passed by the driver

inline void reply_corked(int socket, const char* data, size_t size)
{
    const int on = 1;
    const int off = 0;
    ::setsockopt(socket, IPPROTO_TCP, TCP_CORK, &on, sizeof on);
    [[maybe_unused]] const ssize_t written = ::write(socket, data, size);
    ::setsockopt(socket, IPPROTO_TCP, TCP_CORK, &off, sizeof off);
}

/** Calls `serve(socket)` on a separate thread for each client; ends with the process. */
template <typename Serve>
void serve_forever(Serve serve)
{
    ::signal(SIGPIPE, SIG_IGN);
    while (true) {
        const int socket = ::accept4(kListener, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0) {
            continue;
        }
        std::thread([socket, serve] {
            const int on = 1;
            ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            serve(socket);
            ::close(socket);
        }).detach();
    }
}

} // namespace orvan_bench

#endif
