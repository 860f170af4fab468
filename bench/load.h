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
    double rate;           /**< round trips per second, all clients together */
    double p99_us;         /**< 99 of 100 round trips took no longer, in microseconds */
    unsigned longest_wait; /**< turns of others, between a request and its reply; 0 when not counted */
};

/**
 * Each of `clients` repeatedly sends `request` and waits for a complete line, for `time`.
 *
 * @param counted the reply starts with the number of requests served so far; a wait is then counted in
 *        turns: from the highest number that any client had seen when the request was sent.
 */
Load round_trips(int port, int clients, const std::string& request, std::chrono::milliseconds time,
                 bool counted = false);

/** Repeatedly sends `request` and waits for a complete line, for `time`, on an open connection; returns the
 *  rate. */
double queries_per_second(int socket, const std::string& request, std::chrono::milliseconds time);

/** Repeatedly connects, sends `request`, receives the reply and closes, for `time`; returns the rate. */
double connections(const std::string& address, int port, const std::string& request,
                   std::chrono::milliseconds time);

/** Seconds from the first byte of `message` sent to its reply line, on an open connection. */
double seconds_for(int socket, const std::string& message);

} // namespace orvan_bench

#endif
