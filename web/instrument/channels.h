#ifndef ORVAN_WEB_CHANNELS_H
#define ORVAN_WEB_CHANNELS_H

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "channel_records/records.h"
#include "channel_state.h"
#include "counters.h"
#include "loop.h"
#include "refresh_policy.h"
#include "scpi_link.h"

namespace orvan_web {

/**
 * The channels as their modules have them, while somebody watches: copies their records each kTick, and asks
 * a module for what may have changed (RefreshPolicy). Costs nothing while nobody does. Loop's thread.
 *
 * A value of the record is shown when the module has not said within kHold what it is; one outside the limits
 * never is, for no module has it (":FREQ 2.5GHz" is 2.5 in the record until the module is asked): it is
 * unknown if the module cannot be asked.
 */
class Channels {
public:
    static constexpr std::chrono::milliseconds kTick{100};
    static constexpr std::chrono::milliseconds kHold{100};
    static constexpr std::chrono::milliseconds kCountersPause{500};
    /** Most queries in a message: the reply to more could be too long for the instrument. */
    static constexpr size_t kMostQueries = 12;

    struct Events {
        /** A channel's members that have changed since the last call, with its number. */
        std::function<void(const cJSON* changes)> changed;
        /** The service's counters have been fetched; null if it is not there. */
        std::function<void(const std::shared_ptr<const Counters>&)> counted;
    };

    /** @param object name of the shared memory with the records */
    Channels(InstrumentLoop& loop, ScpiLink& link, CountersClient& counters, std::string object,
             Events events);
    ~Channels();
    Channels(const Channels&) = delete;
    Channels& operator=(const Channels&) = delete;

    /** The channel's state; null if it is not installed. */
    const ChannelState* find(int channel) const;
    int count() const { return static_cast<int>(m_channels.size()); }

    /** Copies the records, without asking anybody. */
    void copy_records();
    /** The channel's record at the last copy; null if there is none. */
    const ORVAN_CONFIG* record(int channel) const;
    /** Its value of a setting as far as it is known without asking: unknown if the record cannot be right. */
    SettingValue known_value(int channel, size_t setting) const;

    /** Begins and ends to follow what others change. */
    void watch(bool watched);

    /** The service has been reached, again: everything about the modules may be different. */
    void restart();

    /** Calls `done` once all channels are up to date, as far as they can be reached, at most after `bound`.
     */
    void settle(std::function<void()> done,
                std::chrono::milliseconds bound = std::chrono::milliseconds(1000));

    /** Brings up to date which channels there are and which have failed, without asking them. */
    void recount(std::function<void()> done);

    /** Asks a channel for these settings, at once, and calls `done` when it has answered or cannot. */
    void ask(int channel, const std::vector<size_t>& settings, std::function<void()> done);
    /** Asks all channels for all settings, so that their records have what the modules have. */
    void ask_all(std::function<void()> done);

private:
    using Time = InstrumentLoop::Clock::time_point;

    struct Channel {
        explicit Channel(int number);

        ChannelState state;
        ChannelState published;
        RefreshPolicy policy;
        std::vector<std::string> replies;           // by setting; those that the record has not contradicted
        std::vector<std::optional<Time>> held;      // by setting: since when the record has another value
        std::vector<std::optional<double>> minimum; // by setting: replies that wait for the maximum
        std::optional<ORVAN_CONFIG> record;
        std::vector<std::function<void()>> waiting; // for the end of the round
    };
    struct Round;
    struct Waiter {
        Time until;
        bool counted; // the service has sent counters made after it began to wait, or is not there
        std::function<void()> done;
    };

    bool active() const { return m_watched || !m_waiters.empty(); }
    void schedule(std::chrono::milliseconds delay);
    void tick();
    static void take_record(Channel& channel, const ORVAN_CONFIG& record, Time now);
    void show_held(Channel& channel);
    static bool is_possible(const Channel& channel, size_t setting, const SettingValue& value);
    void fetch_counters();
    void take_counters(const std::shared_ptr<const Counters>& counters);
    void take_modules(const Counters& counters);
    void begin_due_rounds();
    void begin_round(Channel& channel, const std::vector<size_t>& queries);
    void send_line(const std::shared_ptr<Round>& round);
    void take_line(const std::shared_ptr<Round>& round, const std::vector<size_t>& line,
                   const Answer& answer);
    static void take_reply(Channel& channel, size_t query, const std::string& reply);
    void end_round(const std::shared_ptr<Round>& round);
    bool settled() const;
    void release_waiters();
    void publish();
    void make_channels(size_t count);

    InstrumentLoop& m_loop;
    ScpiLink& m_link;
    CountersClient& m_counters;
    const std::string m_object;
    const Events m_events;
    std::vector<std::unique_ptr<Channel>> m_channels;
    orvan_records::Records m_records;
    std::vector<std::shared_ptr<Waiter>> m_waiters;
    bool m_watched = false;
    bool m_fetching = false;
    Time m_fetched{}; // when the counters were last asked for
    InstrumentLoop::TimerId m_timer = 0;
};

} // namespace orvan_web

#endif
