#include "counters.h"

#include <algorithm>
#include <cmath>

#include "service/shown_text.h"

namespace orvan_service {
namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;

std::array<int64_t, kLatencyBounds.size()> bounds_in_ns()
{
    std::array<int64_t, kLatencyBounds.size()> result{};
    for (size_t i = 0; i < result.size(); ++i) {
        result[i] = std::llround(kLatencyBounds[i] * 1e9);
    }
    return result;
}

const auto kBounds = bounds_in_ns();

/** Of a counter that only one thread changes. */
template <typename Value>
void add(std::atomic<Value>& counter, Value value)
{
    counter.store(counter.load(kRelaxed) + value, kRelaxed);
}

} // namespace

void Counters::count_message(Protocol protocol, Clock::duration latency)
{
    const int64_t taken = std::chrono::nanoseconds(latency).count();
    size_t place = 0; // that of a short message comes first
    while (place < kBounds.size() && taken > kBounds[place]) {
        ++place;
    }
    add(m_counts[static_cast<size_t>(protocol)].messages, uint64_t{1});
    add(m_latencies[place], uint64_t{1});
    add(m_latency_sum, taken);
}

void Counters::count_refused(Protocol protocol)
{
    m_counts[static_cast<size_t>(protocol)].refused.fetch_add(1, kRelaxed);
}

void Counters::count_error(const Client& client, const StandardError& error, std::string_view message)
{
    m_counts[static_cast<size_t>(client.protocol)].errors.fetch_add(1, kRelaxed);
    SeenError seen{Clock::now(), client.protocol,       client.address,
                   error.number, printable(error.text), std::string(message)};
    const std::lock_guard lock(m_mutex);
    if (m_errors.size() == kLastErrors) {
        m_errors.pop_front();
    }
    m_errors.push_back(std::move(seen));
}

Counters::OfProtocol Counters::of(Protocol protocol) const
{
    const Counts& counts = m_counts[static_cast<size_t>(protocol)];
    return {counts.messages.load(kRelaxed), counts.errors.load(kRelaxed), counts.refused.load(kRelaxed)};
}

std::array<uint64_t, kLatencyBounds.size() + 1> Counters::latencies() const
{
    std::array<uint64_t, kLatencyBounds.size() + 1> result{};
    std::transform(m_latencies.begin(), m_latencies.end(), result.begin(),
                   [](const Count& count) { return count.load(kRelaxed); });
    return result;
}

Counters::Clock::duration Counters::latency_sum() const
{
    return std::chrono::nanoseconds(m_latency_sum.load(kRelaxed));
}

std::vector<SeenError> Counters::last_errors() const
{
    const std::lock_guard lock(m_mutex);
    return {m_errors.begin(), m_errors.end()};
}

} // namespace orvan_service
