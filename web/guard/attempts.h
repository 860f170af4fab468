#ifndef ORVAN_WEB_ATTEMPTS_H
#define ORVAN_WEB_ATTEMPTS_H

#include <chrono>
#include <deque>
#include <map>
#include <optional>
#include <string>

namespace orvan_web {

/** Counts wrong passwords: an address may try five in a minute. Not thread-safe. */
class Attempts {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr size_t kMost = 5;
    static constexpr std::chrono::seconds kPeriod{60};

    /** Addresses that are remembered; of more, the one that tried longest ago is forgotten. */
    static constexpr size_t kMostAddresses = 4096;

    /** Counts a try, wrong until it has succeeded: of many at the same time no more are allowed.
     *  @return empty if it is allowed; else after how long the next one is */
    std::optional<std::chrono::seconds> begin(const std::string& address, Clock::time_point now);

    /** The password was right: its address begins anew. */
    void succeeded(const std::string& address) { m_tries.erase(address); }

private:
    void forget(Clock::time_point now);

    std::map<std::string, std::deque<Clock::time_point>> m_tries;
};

} // namespace orvan_web

#endif
