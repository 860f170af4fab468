/**
 * A VXI-11 client that loads a server.
 */
#ifndef ORVAN_BENCH_VXI11_LOAD_H
#define ORVAN_BENCH_VXI11_LOAD_H

#include <chrono>
#include <cstdint>
#include <string>

namespace orvan_bench {

/** A link over the core channel, for one thread. Throws when the server refuses a call. */
class Vxi11Load {
public:
    /** @param port of the core channel */
    explicit Vxi11Load(int port);
    ~Vxi11Load();
    Vxi11Load(const Vxi11Load&) = delete;
    Vxi11Load& operator=(const Vxi11Load&) = delete;

    /** Repeatedly sends `query` by device_write and receives its response by device_read, for `time`; returns
     *  the rate. */
    double queries_per_second(const std::string& query, std::chrono::milliseconds time);

private:
    uint32_t call(uint32_t procedure, const std::string& arguments);

    int m_socket;
    uint32_t m_link = 0;
    uint32_t m_call = 0; // number of the last one
};

} // namespace orvan_bench

#endif
