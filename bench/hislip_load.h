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

    /** Sends a message without waiting for a response. */
    void write(const std::string& message) const;

    /** Seconds that a serial poll takes (AsyncStatusQuery). */
    double seconds_for_poll() const;

    /** Seconds that a device clear takes, from AsyncDeviceClear to DeviceClearAcknowledge. Responses that
     * were on their way are dropped. */
    double seconds_for_clear() const;

private:
    void read() const;

    static constexpr uint32_t kFirstId = 0xFFFF'FF00;

    int m_sync;
    int m_async;
    mutable uint32_t m_id = kFirstId;
    mutable bool m_delivered = false;
};

} // namespace orvan_bench

#endif
