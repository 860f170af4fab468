#ifndef ORVAN_WEB_REFRESH_POLICY_H
#define ORVAN_WEB_REFRESH_POLICY_H

#include <chrono>
#include <cstddef>
#include <optional>
#include <vector>

namespace orvan_web {

/**
 * What the module of one channel is asked for, and when. Its queries are numbered by the caller.
 *
 * The record of a channel shows who changed what, but not always to which value; so a setting whose element
 * of the record has changed is asked for, in rounds that begin at most twice a second. Some changes leave no
 * trace in the record (":AM 2" while it says off): when somebody else has used the module, all settings are
 * asked for, at most once in kFullPause.
 *
 * A module whose last request failed is not asked, for one that hangs holds all clients for 15 s: it has to
 * be reached by somebody else first.
 */
class RefreshPolicy {
public:
    using Time = std::chrono::steady_clock::time_point;

    static constexpr std::chrono::milliseconds kRoundPause{500};
    static constexpr std::chrono::milliseconds kFullPause{2000};

    /** @param values number of the queries for values, the first ones
     *  @param limits number of those for limits, which do not change: asked once, if at all */
    RefreshPolicy(size_t values, size_t limits)
        : m_values(values), m_pending(values + limits), m_unknown(values + limits), m_asked(values + limits)
    {
        restart();
    }

    /** The module, or the service, may be another one: nothing that was known about it holds. */
    void restart();

    /** A query for a limit that is not known otherwise. */
    void missing(size_t query) { m_pending[query] = m_pending[query] || !m_asked[query]; }
    /** What a query returns may have changed. */
    void changed(size_t query) { m_pending[query] = true; }
    /** What it returns is known. */
    void known(size_t query) { m_pending[query] = false; }
    /** All values may have. */
    void all_changed();

    /**
     * @param requests number of requests to the module, by whomever
     * @param failed   the last one failed
     */
    void counted(double requests, bool failed, Time now);

    /** A message with queries of the round has been sent: one request to the module, which is not others'. */
    void sent();

    /** Whether there is something to ask now; counted() should be up to date when the round begins. */
    bool due(Time now) const { return waiting() && now - m_last_round >= kRoundPause; }
    /** Whether there is something to ask, now or soon. */
    bool waiting() const;
    /** Queries are on their way. */
    bool asking() const { return m_asking; }
    bool failed() const { return m_failed; }

    /** Begins a round: the queries to send, in order. */
    std::vector<size_t> begin(Time now);
    /** Begins a round with these queries, however short ago the last one was: those of a user who waits. */
    void begin_now(const std::vector<size_t>& queries, Time now);

    /** The module does not know the query, so it would put an error in its queue each time. */
    void unknown(size_t query) { m_unknown[query] = true; }

    /**
     * Ends the round.
     *
     * @param unanswered    those to ask again
     * @param module_failed the module was not reached
     */
    void finish(const std::vector<size_t>& unanswered, bool module_failed);

private:
    bool is_due(size_t query) const { return m_pending[query] && !m_unknown[query]; }

    size_t m_values;
    std::vector<bool> m_pending;
    std::vector<bool> m_unknown;
    std::vector<bool> m_asked;
    bool m_failed = false;
    bool m_asking = false;
    bool m_used = false;              // by somebody else since the last full round
    std::optional<double> m_requests; // that are known about, our own included
    Time m_last_round{};
    Time m_last_full{};
};

} // namespace orvan_web

#endif
