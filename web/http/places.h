#ifndef ORVAN_WEB_PLACES_H
#define ORVAN_WEB_PLACES_H

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace orvan_web {

/** How many connections are served at the same time, and for how long. */
struct Limits {
    size_t connections = 64;
    /** Less than all, so that one address cannot keep others out; 50 viewers and a browser's usual six fit.
     */
    size_t per_address = 56;
    /** Less than all, so that viewers do not keep requests out. */
    size_t streams = 50;
    /** For a whole request from its connection's beginning, or from the end of the one before. */
    std::chrono::milliseconds receive{10'000};
    /** For a whole reply. */
    std::chrono::milliseconds send{30'000};
    /** Interval at which a stream without events is sent a comment. */
    std::chrono::milliseconds keep_alive{15'000};
    /** After which a stream none of whose bytes could be sent is dropped. */
    std::chrono::milliseconds stall{20'000};
};

enum class PlaceState {
    kReceiving, /**< a request, or idle between two */
    kWaiting,   /**< for the handler's reply */
    kSending,   /**< a reply */
    kStream,
    kClosing /**< no longer counts */
};

/** Which connections there are, and which has to go when there are too many. Not thread-safe. */
class Places {
public:
    using Clock = std::chrono::steady_clock;
    using Id = uint64_t;

    explicit Places(const Limits& limits) : m_limits(limits) {}

    /** Whether a newcomer is served. */
    struct Decision {
        bool admitted = false;
        std::optional<Id> instead_of; /**< to be closed for the newcomer; it has state kClosing already */
    };

    /**
     * Decides about a new connection. If there are too many, the oldest one that is receiving has to go: of
     * the same address, if that has too many, else of the address that has most, if that is more than the
     * newcomer's has.
     */
    Decision admit(const std::string& address);

    /** The same about a connection that becomes a stream, among the streams only. Those of the address that
     *  has most go only if the newcomer still has fewer afterwards, so that two never take turns. */
    Decision admit_stream(Id id);

    Id add(const std::string& address, Clock::time_point now);
    void remove(Id id) { m_places.erase(id); }
    void set(Id id, PlaceState state, Clock::time_point now);
    PlaceState state(Id id) const { return m_places.at(id).state; }
    bool empty() const { return m_places.empty(); }

    /** Those whose request or reply takes too long; they have state kClosing from then on. */
    std::vector<Id> overdue(Clock::time_point now);

private:
    struct Place {
        std::string address;
        PlaceState state;
        Clock::time_point since; /**< of the state */
    };

    std::map<std::string, size_t> counts(std::optional<PlaceState> state) const;
    Decision in_place_of_oldest(const std::string& address, PlaceState state);

    const Limits m_limits;
    std::map<Id, Place> m_places;
    Id m_last_id = 0;
};

} // namespace orvan_web

#endif
