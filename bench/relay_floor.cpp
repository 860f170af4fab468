// usage: orvan-floor-relay ADDRESS PORT [--lease]
// Passes each request to a module over a new connection and the reply back; with --lease one mutex
// is held from the request to the end of its reply.
#include <cstdlib>
#include <cstring>
#include <mutex>

#include <arpa/inet.h>

#include "floor_server.h"

int main(int argc, char** argv)
{
    if (argc < 3) {
        return 2;
    }
    static std::mutex lease;
    const bool leased = argc > 3 && std::strcmp(argv[3], "--lease") == 0;
    sockaddr_in module{};
    module.sin_family = AF_INET;
    module.sin_port = htons(static_cast<uint16_t>(std::atoi(argv[2])));
    ::inet_pton(AF_INET, argv[1], &module.sin_addr);

    orvan_bench::serve_forever([leased, module](int client) {
        char data[4096];
        ssize_t n;
        while ((n = ::recv(client, data, sizeof data, 0)) > 0) {
            std::unique_lock lock(lease, std::defer_lock);
            if (leased) {
                lock.lock();
            }
            const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
            if (::connect(socket, reinterpret_cast<const sockaddr*>(&module), sizeof module) == 0 &&
                ::send(socket, data, static_cast<size_t>(n), 0) == n) {
                n = ::recv(socket, data, sizeof data, 0);
            }
            ::close(socket);
            orvan_bench::reply_corked(client, data, n > 0 ? static_cast<size_t>(n) : 0);
        }
    });
}
