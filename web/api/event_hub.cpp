#include "event_hub.h"

#include <algorithm>

namespace orvan_web {
namespace {

// A viewer waits no longer for values that are being asked for.
constexpr std::chrono::milliseconds kGreetingBound{250};

// Members that only say how long something has lasted are no change.
constexpr std::string_view kDurations = "_s";

} // namespace

EventHub::EventHub(Instrument& instrument, std::function<Json()> document)
    : m_instrument(instrument), m_document(std::move(document))
{
    m_instrument.on_events(
        {[this](const cJSON* changes) { send("channel", to_text(changes)); }, [this] { send_instrument(); },
         [this](bool reachable) {
             send("service", reachable ? R"({"reachable":true})" : R"({"reachable":false})");
         },
         [this] { send_instrument(); }});
}

void EventHub::add(std::shared_ptr<EventStream> stream)
{
    m_viewers.push_back({std::move(stream), false});
    m_instrument.watch(true);
    m_instrument.channels().settle([this] { greet(); }, kGreetingBound);
}

void EventHub::greet()
{
    send_instrument(); // so that all have the same document
    if (!m_sent) {
        m_sent = m_document();
    }
    const std::string instrument = to_text(m_sent);
    std::vector<std::string> channels;
    for (int channel = 1; channel <= m_instrument.channels().count(); ++channel) {
        channels.push_back(to_text(channel_json(*m_instrument.channels().find(channel))));
    }
    for (Viewer& viewer : m_viewers) {
        if (viewer.greeted) {
            continue;
        }
        viewer.greeted = true;
        viewer.stream->send("instrument", instrument);
        for (const std::string& channel : channels) {
            viewer.stream->send("channel", channel);
        }
    }
    drop_gone();
}

void EventHub::send(const char* event, const std::string& data)
{
    for (const Viewer& viewer : m_viewers) {
        if (viewer.greeted) {
            viewer.stream->send(event, data);
        }
    }
    drop_gone();
}

// Also called by the clock, so that viewers who have gone are noticed while nothing changes.
void EventHub::send_instrument()
{
    drop_gone();
    if (!m_sent) {
        return;
    }
    Json now = m_document();
    if (const Json changes = changed_members(m_sent.get(), now.get(), kDurations)) {
        m_sent = std::move(now);
        send("instrument", to_text(changes));
    }
}

void EventHub::drop_gone()
{
    const bool had = !m_viewers.empty();
    std::erase_if(m_viewers, [](const Viewer& viewer) { return viewer.stream->closed(); });
    if (had && m_viewers.empty()) {
        m_sent.reset();
        m_instrument.watch(false);
    }
}

} // namespace orvan_web
