// usage: orvan-floor-module [DELAY_US]
// The bare module used by both candidate and floor: one request per connection, answered with the number of
// requests served so far, after a delay.
#include <cstdio>
#include <cstdlib>

#include "floor_server.h"

int main(int argc, char** argv)
{
    const auto delay = static_cast<useconds_t>(argc > 1 ? std::atoi(argv[1]) : 0);
    ::signal(SIGPIPE, SIG_IGN);
    char data[4096];
    for (unsigned long served = 1;; ++served) {
        const int socket = ::accept4(orvan_bench::kListener, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket >= 0 && ::recv(socket, data, sizeof data, 0) > 0) {
            if (delay > 0) {
                ::usleep(delay);
            }
            const int size = std::snprintf(data, sizeof data, "%lu;+OK\r\n", served);
            [[maybe_unused]] const ssize_t written = ::write(socket, data, static_cast<size_t>(size));
        }
        ::close(socket);
    }
}
