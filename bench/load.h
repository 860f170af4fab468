/**
 * Clients that load a server.
 */
#ifndef ORVAN_BENCH_LOAD_H
#define ORVAN_BENCH_LOAD_H

#include <chrono>
#include <string>

namespace orvan_bench {

/** A connected TCP socket without delay. Throws on failure. */
int connect_to(const std::string& address, int port);
void send_all(int socket, const char* data, size_t size);

struct Load {
    double rate;           /**< round trips a second, of all clients together */
    double p99_us;         /**< 99 of 100 round trips took no longer, in microseconds */
    unsigned longest_wait; /**< turns of others, between a request and its reply; 0 when not counted */
};

/**
 * Each of `clients` sends `request` and waits for a whole line, over and over for `time`.
 *
 * @param counted the reply starts with the number of requests served so far; a wait is then counted in
 *        turns: from the newest number that any client had seen when the request went out.
 */
Load round_trips(int port, int clients, const std::string& request, std::chrono::milliseconds time,
                 bool counted = false);

/** Connects, sends `request`, receives the reply and closes, over and over for `time`; gives the rate. */
double connections(const std::string& address, int port, const std::string& request,
                   std::chrono::milliseconds time);

/** Seconds from the first byte of `message` sent to its reply line, on an open connection. */
double seconds_for(int socket, const std::string& message);

} // namespace orvan_bench

#endif
