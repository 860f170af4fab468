#include "refresh_policy.h"

#include <algorithm>

namespace orvan_web {

void RefreshPolicy::restart()
{
    m_unknown.assign(m_unknown.size(), false);
    m_asked.assign(m_asked.size(), false);
    m_pending.assign(m_pending.size(), false);
    m_failed = false;
    m_used = false;
    m_requests.reset();
    m_last_round = {};
    all_changed();
}

void RefreshPolicy::all_changed()
{
    std::fill_n(m_pending.begin(), m_values, true);
}

void RefreshPolicy::counted(double requests, bool failed, Time now)
{
    m_used = m_used || (m_failed && !failed); // somebody has reached it
    m_failed = failed;
    if (m_asking) {
        return;
    }
    // Fewer than known: the counters were made before our last requests.
    if (!m_requests || requests > *m_requests) {
        m_used = m_used || m_requests.has_value();
        m_requests = requests;
    }
    if (m_used && !m_failed && now - m_last_full >= kFullPause) {
        m_used = false;
        m_last_full = now;
        all_changed();
    }
}

void RefreshPolicy::sent()
{
    if (m_requests) {
        ++*m_requests;
    }
}

bool RefreshPolicy::waiting() const
{
    if (m_failed || m_asking) {
        return false;
    }
    for (size_t query = 0; query < m_pending.size(); ++query) {
        if (is_due(query)) {
            return true;
        }
    }
    return false;
}

std::vector<size_t> RefreshPolicy::begin(Time now)
{
    std::vector<size_t> queries;
    for (size_t query = 0; query < m_pending.size(); ++query) {
        if (is_due(query)) {
            queries.push_back(query);
        }
    }
    begin_now(queries, now);
    return queries;
}

void RefreshPolicy::begin_now(const std::vector<size_t>& queries, Time now)
{
    for (const size_t query : queries) {
        m_pending[query] = false;
        m_asked[query] = true;
    }
    m_asking = true;
    m_last_round = now;
}

void RefreshPolicy::finish(const std::vector<size_t>& unanswered, bool module_failed)
{
    for (const size_t query : unanswered) {
        m_pending[query] = true;
        m_asked[query] = false;
    }
    m_asking = false;
    m_failed = m_failed || module_failed;
}

} // namespace orvan_web
