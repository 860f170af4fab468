// usage: orvan-floor-block BYTES
// Reads BYTES into one buffer, kept from message to message, and answers.
#include <cstdlib>
#include <memory>

#include "floor_server.h"

int main(int argc, char** argv)
{
    const size_t size = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 0;
    orvan_bench::serve_forever([size](int socket) {
        const auto data = std::make_unique<char[]>(size);
        while (true) {
            for (size_t used = 0; used < size;) {
                const ssize_t n = ::recv(socket, data.get() + used, size - used, 0);
                if (n <= 0) {
                    return;
                }
                used += static_cast<size_t>(n);
            }
            orvan_bench::reply_corked(socket, "+OK\r\n", 5);
        }
    });
}
