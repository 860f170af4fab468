#ifndef ORVAN_SERVICE_COUNTERS_COUNTERS_H
#define ORVAN_SERVICE_COUNTERS_COUNTERS_H

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "service/client.h"
#include "service/standard/standard_reply.h"

namespace orvan_service {

/** Upper bounds of the classes of the latency histogram, in seconds; one more class is above them. */
inline constexpr std::array<double, 11> kLatencyBounds{0.0001, 0.0003, 0.001, 0.003, 0.01, 0.03,
                                                       0.1,    0.3,    1,     3,     10};

/** An error that a client got, or has in its queue. */
struct SeenError {
    std::chrono::steady_clock::time_point time;
    Protocol protocol;
    std::string client; /**< its address */
    int number;
    std::string text;
    std::string message; /**< as shown_message() has it; empty for an error that no message caused */
};

/**
 * Counts what the service does. Counting a message takes no lock; only an error does, as errors are few and
 * come from several threads.
 */
class Counters {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr size_t kLastErrors = 20;

    /** A message has been executed. The executor's thread. */
    void count_message(Protocol protocol, Clock::duration latency);
    /** A client was refused. Any thread. */
    void count_refused(Protocol protocol);
    /** Any thread. @param message as shown_message() has it */
    void count_error(const Client& client, const StandardError& error, std::string_view message);

    // What has been counted. Any thread; each number is right, but they may be of different moments.

    struct OfProtocol {
        uint64_t messages;
        uint64_t errors;
        uint64_t refused;
    };
    OfProtocol of(Protocol protocol) const;
    /** Messages by class of latency. */
    std::array<uint64_t, kLatencyBounds.size() + 1> latencies() const;
    /** Of all messages together. */
    Clock::duration latency_sum() const;
    /** Oldest first. */
    std::vector<SeenError> last_errors() const;
    Clock::time_point begin() const { return m_begin; }

private:
    using Count = std::atomic<uint64_t>;
    struct Counts {
        Count messages = 0;
        Count errors = 0;
        Count refused = 0;
    };

    const Clock::time_point m_begin = Clock::now();
    std::array<Counts, kProtocols> m_counts;
    std::array<Count, kLatencyBounds.size() + 1> m_latencies{};
    std::atomic<int64_t> m_latency_sum = 0; // ns
    mutable std::mutex m_mutex;             // guards what follows
    std::deque<SeenError> m_errors;
};

} // namespace orvan_service

#endif
