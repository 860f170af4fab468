#include "channels.h"

#include <algorithm>
#include <cstring>
#include <ranges>
#include <utility>

#include "channel_queries.h"
#include "channel_records/element_text.h"

namespace orvan_web {
namespace {

using Clock = InstrumentLoop::Clock;
using Of = ChannelQuery::Of;

std::optional<double> temperature_of(const ORVAN_CONFIG& record)
{
    // The record has 0 until the module was first asked.
    const double temperature = record.SYSTEM.Temperature;
    return temperature != 0 ? std::optional(temperature) : std::nullopt;
}

std::string text_of(const ORVAN_CONFIG& record, OrvanElement tag)
{
    return orvan_records::stored_bytes(OrvanData::orvanMap[tag], record);
}

} // namespace

Channels::Channel::Channel(int number)
    : state(number), published(number), policy(value_queries(), channel_queries().size() - value_queries()),
      replies(channel_settings().size()), held(channel_settings().size()), minimum(channel_settings().size())
{
}

Channels::Channels(InstrumentLoop& loop, ScpiLink& link, CountersClient& counters, std::string object,
                   Events events)
    : m_loop(loop), m_link(link), m_counters(counters), m_object(std::move(object)),
      m_events(std::move(events))
{
}

Channels::~Channels()
{
    m_loop.cancel(m_timer);
}

const ChannelState* Channels::find(int channel) const
{
    return channel >= 1 && channel <= count() ? &m_channels[static_cast<size_t>(channel) - 1]->state
                                              : nullptr;
}

const ORVAN_CONFIG* Channels::record(int channel) const
{
    const bool has = find(channel) != nullptr && m_channels[static_cast<size_t>(channel) - 1]->record;
    return has ? &*m_channels[static_cast<size_t>(channel) - 1]->record : nullptr;
}

SettingValue Channels::known_value(int channel, size_t setting) const
{
    const Channel& source = *m_channels[static_cast<size_t>(channel) - 1];
    if (!source.held[setting]) {
        return source.state.values[setting];
    }
    const SettingValue value = value_of_record(channel_settings()[setting], *source.record);
    return is_possible(source, setting, value) ? value : SettingValue();
}

void Channels::make_channels(size_t count)
{
    while (m_channels.size() < count) {
        m_channels.push_back(std::make_unique<Channel>(static_cast<int>(m_channels.size()) + 1));
    }
}

void Channels::watch(bool watched)
{
    m_watched = watched;
    if (watched) {
        schedule(std::chrono::milliseconds(0));
    }
}

void Channels::restart()
{
    for (const auto& channel : m_channels) {
        channel->policy.restart();
        channel->record.reset();
        channel->replies.assign(channel->replies.size(), {});
    }
    if (active()) {
        schedule(std::chrono::milliseconds(0));
    }
}

void Channels::settle(std::function<void()> done, std::chrono::milliseconds bound)
{
    m_waiters.push_back(std::make_shared<Waiter>(Waiter{Clock::now() + bound, false, std::move(done)}));
    copy_records();
    m_counters.fetch([this, waiter = m_waiters.back()](const std::shared_ptr<const Counters>& counters) {
        waiter->counted = true;
        take_counters(counters);
    });
    schedule(kTick);
}

// ---- following what others change

void Channels::schedule(std::chrono::milliseconds delay)
{
    if (m_timer != 0 && delay.count() > 0) {
        return;
    }
    m_loop.cancel(m_timer);
    m_timer = m_loop.after(delay, [this] { tick(); });
}

void Channels::tick()
{
    m_timer = 0;
    if (!active()) {
        return;
    }
    schedule(kTick);
    copy_records();
    const Time now = Clock::now();
    const bool due = std::any_of(m_channels.begin(), m_channels.end(),
                                 [now](const auto& channel) { return channel->policy.due(now); });
    if (!m_fetching && (due || now - m_fetched >= kCountersPause)) {
        fetch_counters();
    }
    for (const auto& channel : m_channels) {
        show_held(*channel);
    }
    publish();
    release_waiters();
}

void Channels::copy_records()
{
    orvan_records::Records records = orvan_records::read_records(m_object.c_str());
    make_channels(records.size());
    for (size_t i = 0; i < records.size(); ++i) {
        take_record(*m_channels[i], records[i], Clock::now());
    }
}

void Channels::take_record(Channel& channel, const ORVAN_CONFIG& record, Time now)
{
    if (channel.record && std::memcmp(&*channel.record, &record, sizeof record) == 0) {
        return;
    }
    const auto settings = channel_settings();
    for (size_t i = 0; i < settings.size(); ++i) {
        const OrvanElementData& element = OrvanData::orvanMap[settings[i].tag];
        if (const auto limits = limits_of_record(settings[i], record)) {
            channel.state.limits[i] = limits;
        }
        if (channel.record && orvan_records::stored_bytes(element, *channel.record) ==
                                  orvan_records::stored_bytes(element, record)) {
            continue;
        }
        if (!settings[i].asked) {
            channel.state.values[i] = value_of_record(settings[i], record);
        } else if (channel.replies[i].empty() || !record_shows(settings[i], record, channel.replies[i])) {
            channel.replies[i].clear();
            channel.policy.changed(*query_for(i, Of::kValue));
            channel.held[i] = channel.held[i] ? channel.held[i] : now;
        }
    }
    channel.state.model = text_of(record, ODT_INF_MODEL);
    channel.state.serial = text_of(record, ODT_INF_SERIAL);
    channel.state.temperature_celsius = temperature_of(record);
    channel.record = record;
}

bool Channels::is_possible(const Channel& channel, size_t setting, const SettingValue& value)
{
    const double* const number = std::get_if<double>(&value);
    const std::optional<SettingLimits>& limits = channel.state.limits[setting];
    return number == nullptr || !limits || (*number >= limits->min && *number <= limits->max);
}

void Channels::show_held(Channel& channel)
{
    // A service that starts writes records that nobody has set; then all is asked again.
    if (!m_link.reachable()) {
        return;
    }
    const Time now = Clock::now();
    for (size_t i = 0; i < channel.held.size(); ++i) {
        if (!channel.held[i] || !channel.record || now - *channel.held[i] < kHold) {
            continue;
        }
        const SettingValue value = value_of_record(channel_settings()[i], *channel.record);
        const bool will_be_asked = channel.policy.waiting() || channel.policy.asking();
        const bool possible = is_possible(channel, i, value);
        if (possible || !will_be_asked) {
            channel.state.values[i] = possible ? value : SettingValue();
            channel.held[i].reset();
        }
    }
}

void Channels::fetch_counters()
{
    m_fetching = true;
    m_fetched = Clock::now();
    m_counters.fetch([this](const std::shared_ptr<const Counters>& counters) {
        m_fetching = false;
        take_counters(counters);
    });
}

void Channels::recount(std::function<void()> done)
{
    m_counters.fetch([this, done = std::move(done)](const std::shared_ptr<const Counters>& counters) {
        if (counters) {
            take_modules(*counters);
        }
        done();
    });
}

void Channels::take_modules(const Counters& counters)
{
    make_channels(counters.modules.size());
    for (const auto& channel : m_channels) {
        if (const ModuleCounters* const module = counters.module(channel->state.channel)) {
            channel->policy.counted(module->requests, module->failed, Clock::now());
            channel->state.failed = module->failed;
        }
    }
}

void Channels::take_counters(const std::shared_ptr<const Counters>& counters)
{
    if (counters) {
        take_modules(*counters);
        begin_due_rounds();
    }
    m_events.counted(counters);
    publish();
    release_waiters();
}

// ---- asking the modules

/** Messages to one channel, one after the other. */
struct Channels::Round {
    Channel& channel;
    std::vector<std::vector<size_t>> lines; // of queries; the next one last
    std::vector<size_t> unanswered;
    bool module_failed = false;
};

void Channels::begin_due_rounds()
{
    if (!m_link.reachable()) {
        return;
    }
    const Time now = Clock::now();
    for (const auto& channel : m_channels) {
        for (size_t i = 0; i < channel_settings().size(); ++i) {
            if (has_limits(channel_settings()[i]) && !channel->state.limits[i]) {
                channel->policy.missing(*query_for(i, Of::kMin));
                channel->policy.missing(*query_for(i, Of::kMax));
            }
        }
        if (channel->policy.due(now)) {
            begin_round(*channel, channel->policy.begin(now));
        }
    }
}

void Channels::begin_round(Channel& channel, const std::vector<size_t>& queries)
{
    const auto round = std::make_shared<Round>(Round{channel, {}, {}});
    for (size_t begin = 0; begin < queries.size(); begin += kMostQueries) {
        const size_t end = std::min(begin + kMostQueries, queries.size());
        round->lines.emplace_back(queries.begin() + static_cast<std::ptrdiff_t>(begin),
                                  queries.begin() + static_cast<std::ptrdiff_t>(end));
    }
    std::reverse(round->lines.begin(), round->lines.end());
    send_line(round);
}

// One at a time: those after one that its module did not answer are not sent.
void Channels::send_line(const std::shared_ptr<Round>& round)
{
    if (round->lines.empty()) {
        end_round(round);
        return;
    }
    std::vector<size_t> line = std::move(round->lines.back());
    round->lines.pop_back();
    std::string text;
    for (const size_t query : line) {
        text += (text.empty() ? "" : ";") + query_text(channel_queries()[query]);
    }
    round->channel.policy.sent();
    m_link.ask(
        for_channel(round->channel.state.channel, text),
        [this, round, line = std::move(line)](const Answer& answer) { take_line(round, line, answer); });
}

void Channels::take_line(const std::shared_ptr<Round>& round, const std::vector<size_t>& line,
                         const Answer& answer)
{
    if (!answer.answered() || answer.module_failed()) {
        round->module_failed = answer.answered();
        round->unanswered = line;
        for (const std::vector<size_t>& rest : round->lines) {
            round->unanswered.insert(round->unanswered.end(), rest.begin(), rest.end());
        }
        end_round(round);
        return;
    }
    const std::vector<std::string> replies = split_fields(answer.response);
    if (replies.size() == line.size() && answer.errors.empty()) {
        for (size_t i = 0; i < line.size(); ++i) {
            take_reply(round->channel, line[i], replies[i]);
        }
    } else if (line.size() > 1) {
        // Which query failed shows when each has a message of its own.
        for (const size_t query : std::views::reverse(line)) {
            round->lines.push_back({query});
        }
    } else if (std::any_of(answer.errors.begin(), answer.errors.end(), [](const ScpiError& error) {
                   return error.number <= -100 && error.number >= -199; // a command error
               })) {
        round->channel.policy.unknown(line.front());
    }
    send_line(round);
}

void Channels::take_reply(Channel& channel, size_t query, const std::string& reply)
{
    const auto [setting, of] = channel_queries()[query];
    const SettingValue value = value_of_reply(channel_settings()[setting], reply);
    const double* const number = std::get_if<double>(&value);
    switch (of) {
    case Of::kValue:
        channel.replies[setting] = reply;
        channel.state.values[setting] = value;
        channel.held[setting].reset();
        // A copy of the records may have shown what the reply did there before the reply was here.
        if (channel.record && record_shows(channel_settings()[setting], *channel.record, reply)) {
            channel.policy.known(query);
        }
        break;
    case Of::kMin:
        channel.minimum[setting] = number != nullptr ? std::optional(*number) : std::nullopt;
        break;
    case Of::kMax:
        if (number != nullptr && channel.minimum[setting]) {
            channel.state.limits[setting] = SettingLimits{*channel.minimum[setting], *number};
        }
        break;
    }
}

void Channels::end_round(const std::shared_ptr<Round>& round)
{
    Channel& channel = round->channel;
    channel.policy.finish(round->unanswered, round->module_failed);
    copy_records();
    publish();
    for (const auto& done : std::exchange(channel.waiting, {})) {
        done();
    }
    if (active() && !m_fetching) {
        fetch_counters(); // it may have failed
    }
}

void Channels::ask(int channel, const std::vector<size_t>& settings, std::function<void()> done)
{
    Channel& target = *m_channels[static_cast<size_t>(channel) - 1];
    if (target.policy.asking()) {
        target.waiting.emplace_back(
            [this, channel, settings, done = std::move(done)] { ask(channel, settings, done); });
        return;
    }
    std::vector<size_t> queries;
    for (const size_t setting : settings) {
        if (const std::optional<size_t> query = query_for(setting, Of::kValue)) {
            queries.push_back(*query);
        }
    }
    target.waiting.push_back(std::move(done));
    target.policy.begin_now(queries, Clock::now());
    begin_round(target, target.policy.failed() ? std::vector<size_t>{} : queries);
}

void Channels::ask_all(std::function<void()> done)
{
    std::vector<size_t> all(channel_settings().size());
    for (size_t i = 0; i < all.size(); ++i) {
        all[i] = i;
    }
    constexpr std::chrono::minutes kBound{1}; // modules that fail at this moment take 15 s each
    const std::shared_ptr<void> last = m_loop.join(kBound, std::move(done));
    for (int channel = 1; channel <= count(); ++channel) {
        ask(channel, all, [last] {});
    }
}

// ---- telling

bool Channels::settled() const
{
    return std::none_of(m_channels.begin(), m_channels.end(), [this](const auto& channel) {
        return channel->policy.asking() || (channel->policy.waiting() && m_link.reachable());
    });
}

void Channels::release_waiters()
{
    const Time now = Clock::now();
    const bool all_settled = settled();
    std::vector<std::function<void()>> ready;
    std::erase_if(m_waiters, [&](const std::shared_ptr<Waiter>& waiter) {
        const bool over = (all_settled && waiter->counted) || now >= waiter->until;
        if (over) {
            ready.push_back(std::move(waiter->done));
        }
        return over;
    });
    for (const auto& done : ready) {
        done();
    }
}

void Channels::publish()
{
    for (const auto& channel : m_channels) {
        if (const Json changes = channel_changes(channel->published, channel->state)) {
            channel->published = channel->state;
            m_events.changed(changes.get());
        }
    }
}

} // namespace orvan_web
