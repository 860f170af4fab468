#ifndef ORVAN_WEB_SESSIONS_H
#define ORVAN_WEB_SESSIONS_H

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace orvan_web {

/** The sessions of those who have given the password, by their tokens. In memory only. Not thread-safe. */
class Sessions {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::hours kLifetime{8};

    /** Of more, the oldest one ends. */
    static constexpr size_t kMost = 64;

    /** Begins a session.
     *  @return its token */
    std::string begin(Clock::time_point now);

    bool has(std::string_view token, Clock::time_point now) const;

    /** @return false if there is no such session */
    bool end(std::string_view token, Clock::time_point now);

    void end_all() { m_sessions.clear(); }

private:
    struct Session {
        std::string hash;
        Clock::time_point end;
    };

    std::vector<Session>::const_iterator find(std::string_view token, Clock::time_point now) const;

    std::vector<Session> m_sessions; /**< oldest first */
};

} // namespace orvan_web

#endif
