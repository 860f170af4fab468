#include "orvan_sdk/modules/module_counters.h"

#include <array>
#include <atomic>

#include "module_request.h"

namespace HaldeElec::Orvan {
namespace {

struct Counts {
    std::atomic<uint64_t> requests = 0;
    std::atomic<uint64_t> timeouts = 0;
    std::atomic<uint64_t> link_errors = 0;
    std::atomic<bool> failed = false;
};

std::array<Counts, kMaxChannels> g_counts;

// What the link returns instead of a reply. No module's error begins so: those have a number.
constexpr std::string_view kTimeouts[] = {"-ERR Receive timeout", "-ERR Connection timeout"};
constexpr std::string_view kLinkErrors[] = {"-ERR Unable to", "-ERR Error while receiving"};

template <size_t kCount>
bool begins_with_one(std::string_view reply, const std::string_view (&texts)[kCount])
{
    return std::any_of(std::begin(texts), std::end(texts),
                       [reply](std::string_view text) { return reply.starts_with(text); });
}

void increment(std::atomic<uint64_t>& count)
{
    count.fetch_add(1, std::memory_order_relaxed);
}

} // namespace

void count_request(int channel, std::string_view reply)
{
    Counts& counts = g_counts[static_cast<size_t>(channel - 1)];
    const bool timeout = begins_with_one(reply, kTimeouts);
    const bool link_error = begins_with_one(reply, kLinkErrors);
    increment(counts.requests);
    if (timeout) {
        increment(counts.timeouts);
    } else if (link_error) {
        increment(counts.link_errors);
    }
    counts.failed.store(timeout || link_error, std::memory_order_relaxed);
}

ModuleCounters module_counters(int channel)
{
    if (channel < 1 || channel > kMaxChannels) {
        return {};
    }
    const Counts& counts = g_counts[static_cast<size_t>(channel - 1)];
    return {counts.requests.load(std::memory_order_relaxed), counts.timeouts.load(std::memory_order_relaxed),
            counts.link_errors.load(std::memory_order_relaxed),
            counts.failed.load(std::memory_order_relaxed)};
}

} // namespace HaldeElec::Orvan
