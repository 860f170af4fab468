#include "guard/attempts.h"

#include <algorithm>

namespace orvan_web {

std::optional<std::chrono::seconds> Attempts::begin(const std::string& address, Clock::time_point now)
{
    auto& tries = m_tries[address];
    while (!tries.empty() && now - tries.front() >= kPeriod) {
        tries.pop_front();
    }
    if (tries.size() >= kMost) {
        return std::chrono::ceil<std::chrono::seconds>(tries.front() + kPeriod - now);
    }
    tries.push_back(now);
    forget(now);
    return std::nullopt;
}

void Attempts::forget(Clock::time_point now)
{
    if (m_tries.size() <= kMostAddresses) {
        return;
    }
    std::erase_if(m_tries, [&](const auto& entry) { return now - entry.second.back() >= kPeriod; });
    if (m_tries.size() > kMostAddresses) {
        m_tries.erase(std::min_element(m_tries.begin(), m_tries.end(), [](const auto& a, const auto& b) {
            return a.second.back() < b.second.back();
        }));
    }
}

} // namespace orvan_web
