#include "load.h"

#include <algorithm>
#include <atomic>
#include <barrier>
#include <charconv>
#include <stdexcept>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace orvan_bench {
namespace {

using Clock = std::chrono::steady_clock;

// Receives one reply line into `line`, which is large enough for all benchmarks.
size_t receive_line(int socket, char* line, size_t size)
{
    size_t used = 0;
    do {
        const ssize_t n = ::recv(socket, line + used, size - used, 0);
        if (n <= 0) {
            throw std::runtime_error("the server ended the connection");
        }
        used += static_cast<size_t>(n);
    } while (line[used - 1] != '\n');
    if (line[0] == '-') {
        throw std::runtime_error("the server answered " + std::string(line, used));
    }
    return used;
}

double percentile_99(const std::vector<std::vector<float>>& times)
{
    std::vector<float> all;
    for (const auto& some : times) {
        all.insert(all.end(), some.begin(), some.end());
    }
    if (all.empty()) {
        return 0;
    }
    const auto place = all.begin() + static_cast<ptrdiff_t>(all.size() * 99 / 100);
    std::nth_element(all.begin(), place, all.end());
    return *place;
}

} // namespace

int connect_to(const std::string& address, int port)
{
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(static_cast<uint16_t>(port));
    if (::inet_pton(AF_INET, address.c_str(), &peer.sin_addr) != 1 ||
        ::connect(socket, reinterpret_cast<sockaddr*>(&peer), sizeof peer) != 0) {
        ::close(socket);
        throw std::runtime_error("cannot connect to " + address + " port " + std::to_string(port));
    }
    return socket;
}

void send_all(int socket, const char* data, size_t size)
{
    while (size > 0) {
        const ssize_t n = ::send(socket, data, size, MSG_NOSIGNAL);
        if (n <= 0) {
            throw std::runtime_error("the server does not take what is sent");
        }
        data += n;
        size -= static_cast<size_t>(n);
    }
}

Load round_trips(int port, int clients, const std::string& request, std::chrono::milliseconds time,
                 bool counted)
{
    std::atomic<uint64_t> total = 0;
    std::atomic<uint64_t> newest = 0;
    std::atomic<uint64_t> longest = 0;
    std::barrier begin(clients + 1);
    std::atomic<bool> end = false;
    std::vector<std::vector<float>> taken(static_cast<size_t>(clients)); // microseconds
    std::vector<std::thread> threads;
    for (int client = 0; client < clients; ++client) {
        threads.emplace_back([&, &times = taken[static_cast<size_t>(client)]] {
            const int socket = connect_to("127.0.0.1", port);
            char line[4096];
            uint64_t count = 0;
            uint64_t longest_here = 0;
            times.reserve(static_cast<size_t>(time.count()) * 100);
            send_all(socket, request.data(), request.size());
            receive_line(socket, line, sizeof line);
            begin.arrive_and_wait();
            while (!end.load(std::memory_order_relaxed)) {
                const uint64_t seen = newest.load(std::memory_order_relaxed);
                const auto asked = Clock::now();
                send_all(socket, request.data(), request.size());
                const size_t length = receive_line(socket, line, sizeof line);
                times.push_back(std::chrono::duration<float, std::micro>(Clock::now() - asked).count());
                ++count;
                if (counted) {
                    uint64_t number = 0;
                    std::from_chars(line, line + length, number);
                    // The first reply has nothing to compare with.
                    if (seen > 0 && number > seen) {
                        longest_here = std::max(longest_here, number - seen - 1);
                    }
                    uint64_t known = newest.load(std::memory_order_relaxed);
                    while (known < number && !newest.compare_exchange_weak(known, number)) {
                    }
                }
            }
            total += count;
            uint64_t known = longest.load();
            while (known < longest_here && !longest.compare_exchange_weak(known, longest_here)) {
            }
            ::close(socket);
        });
    }
    begin.arrive_and_wait();
    const auto started = Clock::now();
    std::this_thread::sleep_for(time);
    end = true;
    for (auto& thread : threads) {
        thread.join();
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - started).count();
    return {static_cast<double>(total) / seconds, percentile_99(taken), static_cast<unsigned>(longest)};
}

double queries_per_second(int socket, const std::string& request, std::chrono::milliseconds time)
{
    char line[4096];
    uint64_t count = 0;
    const auto begin = Clock::now();
    while (Clock::now() - begin < time) {
        send_all(socket, request.data(), request.size());
        receive_line(socket, line, sizeof line);
        ++count;
    }
    return static_cast<double>(count) / std::chrono::duration<double>(Clock::now() - begin).count();
}

double connections(const std::string& address, int port, const std::string& request,
                   std::chrono::milliseconds time)
{
    const auto started = Clock::now();
    uint64_t count = 0;
    char line[4096];
    while (Clock::now() - started < time) {
        const int socket = connect_to(address, port);
        send_all(socket, request.data(), request.size());
        receive_line(socket, line, sizeof line);
        ::close(socket);
        ++count;
    }
    return static_cast<double>(count) / std::chrono::duration<double>(Clock::now() - started).count();
}

double seconds_for(int socket, const std::string& message)
{
    char line[4096];
    const auto started = Clock::now();
    send_all(socket, message.data(), message.size());
    receive_line(socket, line, sizeof line);
    return std::chrono::duration<double>(Clock::now() - started).count();
}

} // namespace orvan_bench
