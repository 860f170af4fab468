#include "guard/sessions.h"

#include <algorithm>

#include "guard/secrets.h"

namespace orvan_web {

std::string Sessions::begin(Clock::time_point now)
{
    std::erase_if(m_sessions, [&](const Session& session) { return session.end <= now; });
    if (m_sessions.size() == kMost) {
        m_sessions.erase(m_sessions.begin());
    }
    std::string token = new_token();
    m_sessions.push_back({token_hash(token), now + kLifetime});
    return token;
}

std::vector<Sessions::Session>::const_iterator Sessions::find(std::string_view token,
                                                              Clock::time_point now) const
{
    const std::string hash = token_hash(token);
    return std::find_if(m_sessions.begin(), m_sessions.end(), [&](const Session& session) {
        return equal_secrets(session.hash, hash) && now < session.end;
    });
}

bool Sessions::has(std::string_view token, Clock::time_point now) const
{
    return find(token, now) != m_sessions.end();
}

bool Sessions::end(std::string_view token, Clock::time_point now)
{
    const auto found = find(token, now);
    if (found == m_sessions.end()) {
        return false;
    }
    m_sessions.erase(found);
    return true;
}

} // namespace orvan_web
