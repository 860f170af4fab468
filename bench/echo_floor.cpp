// usage: orvan-floor-echo [--mutex]
// Echoes what each recv returns; with --mutex one mutex is held over the write, for all clients.
#include <cstring>
#include <mutex>

#include "floor_server.h"

int main(int argc, char** argv)
{
    static std::mutex mutex;
    const bool locked = argc > 1 && std::strcmp(argv[1], "--mutex") == 0;
    orvan_bench::serve_forever([locked](int socket) {
        char data[16384];
        ssize_t n;
        while ((n = ::recv(socket, data, sizeof data, 0)) > 0) {
            if (locked) {
                const std::lock_guard lock(mutex);
                orvan_bench::reply_corked(socket, data, static_cast<size_t>(n));
            } else {
                orvan_bench::reply_corked(socket, data, static_cast<size_t>(n));
            }
        }
    });
}
