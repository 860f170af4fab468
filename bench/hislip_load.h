/**
 * A HiSLIP client that loads a server (IVI-6.1).
 */
#ifndef ORVAN_BENCH_HISLIP_LOAD_H
#define ORVAN_BENCH_HISLIP_LOAD_H

#include <chrono>
#include <cstdint>
#include <string>

namespace orvan_bench {

/** A session over both channels, for one thread. Throws when the server ends it. */
class HislipLoad {
public:
    explicit HislipLoad(int port);
    ~HislipLoad();
    HislipLoad(const HislipLoad&) = delete;
    HislipLoad& operator=(const HislipLoad&) = delete;

    /** Repeatedly sends `query` and waits for its response, for `time`; returns the rate. */
    double queries_per_second(const std::string& query, std::chrono::milliseconds time) const;

    /** Seconds from the first byte of `message`, which has no response, to the response to a query after it.
     */
    double seconds_for(const std::string& message) const;

private:
    void write(const std::string& message) const;
    void read() const;

    int m_sync;
    int m_async;
    mutable uint32_t m_id = 0xFFFF'FF00;
    mutable bool m_delivered = false;
};

} // namespace orvan_bench

#endif
