#include "instrument.h"

#include <charconv>
#include <utility>

#include "channel_records/element_text.h"

namespace orvan_web {
namespace {

constexpr uint16_t kUsualRawPort = 5025;            // taken by the service if the settings have none
constexpr std::chrono::seconds kConditionPause{10}; // between two looks at fan, battery and self-test
// A document is sent after this, with what is known then: a command that runs may take long.
constexpr std::chrono::milliseconds kRefreshBound{1000};

Json text_array(const std::vector<std::string>& texts)
{
    Json array(cJSON_CreateArray());
    for (const std::string& text : texts) {
        cJSON_AddItemToArray(array.get(), json_string(text).release());
    }
    return array;
}

Json network_json(const Network& network)
{
    Json json = json_object();
    cJSON_AddBoolToObject(json.get(), "dhcp", network.dhcp);
    add(json.get(), "address", json_string(network.address));
    add(json.get(), "mask", json_string(network.mask));
    add(json.get(), "gateway", json_string(network.gateway));
    add(json.get(), "dns", text_array(network.dns));
    return json;
}

Json interfaces_json(const Network& network, uint16_t raw_port)
{
    Json array(cJSON_CreateArray());
    if (network.address.empty()) {
        return array;
    }
    const std::string host = "TCPIP::" + network.address;
    const std::pair<const char*, std::string> interfaces[] = {
        {"raw", host + "::" + std::to_string(raw_port) + "::SOCKET"},
        {"hislip", host + "::hislip0::INSTR"},
        {"vxi11", host + "::INSTR"}};
    for (const auto& [protocol, address] : interfaces) {
        cJSON* const entry = cJSON_CreateObject();
        cJSON_AddItemToArray(array.get(), entry);
        cJSON_AddStringToObject(entry, "protocol", protocol);
        add(entry, "address", json_string(address));
    }
    return array;
}

Json condition_member(const Condition& condition, const char* name)
{
    const std::string_view wanted = name;
    Json json = json_object();
    if (wanted == "fan" && !condition.fan_mode.empty()) {
        add(json.get(), "mode", json_string(condition.fan_mode));
    } else if (wanted == "battery" && condition.battery_percent) {
        cJSON_AddNumberToObject(json.get(), "charge_percent", *condition.battery_percent);
    } else if (wanted == "self_test" && condition.self_test) {
        add(json.get(), "results", text_array(*condition.self_test));
    } else {
        return Json(cJSON_CreateNull());
    }
    return json;
}

// The clients that are not the instrument's own, which this process is as well.
Json clients_json(const Counters* counters)
{
    Json array(cJSON_CreateArray());
    const cJSON* const all =
        counters != nullptr ? cJSON_GetObjectItemCaseSensitive(counters->document.get(), "clients") : nullptr;
    const cJSON* client = nullptr;
    cJSON_ArrayForEach(client, all)
    {
        if (!bool_member(client, "own") && string_member(client, "protocol") != "local") {
            cJSON_AddItemToArray(array.get(), cJSON_Duplicate(client, 1));
        }
    }
    return array;
}

Json copied(const Counters* counters, const char* name, cJSON* otherwise)
{
    const cJSON* const found =
        counters != nullptr ? cJSON_GetObjectItemCaseSensitive(counters->document.get(), name) : nullptr;
    Json fallback(otherwise);
    return found != nullptr ? Json(cJSON_Duplicate(found, 1)) : std::move(fallback);
}

Json service_json(bool reachable, const Counters* counters)
{
    constexpr double kLong = 1; // seconds: a shorter command is over before anybody reads of it
    Json json = json_object();
    cJSON_AddBoolToObject(json.get(), "reachable", reachable);
    add(json.get(), "uptime_s", copied(counters, "uptime_s", cJSON_CreateNull()));
    Json running = copied(counters, "running", cJSON_CreateNull());
    const bool is_long = number_member(running.get(), "for_s") >= kLong;
    add(json.get(), "running", is_long ? std::move(running) : Json(cJSON_CreateNull()));
    return json;
}

} // namespace

Instrument::Instrument(InstrumentLoop& loop, const InstrumentOptions& options)
    : m_loop(loop),
      m_link(loop, options.local_dir + "/scpi.sock", [this](bool reachable) { take_reachable(reachable); }),
      m_counters(loop, options.local_dir + "/counters.sock"),
      m_channels(loop, m_link, m_counters, options.records,
                 {[this](const cJSON* changes) {
                      for (const Events& listener : m_listeners) {
                          if (listener.channel) {
                              listener.channel(changes);
                          }
                      }
                  },
                  [this](const std::shared_ptr<const Counters>& counters) { take_counters(counters); }}),
      m_controller(m_link), m_history(loop, m_channels), m_setups(options.setups, m_channels)
{
}

Instrument::~Instrument()
{
    m_loop.cancel(m_timer);
}

void Instrument::start()
{
    m_history.start();
    m_link.start();
}

void Instrument::watch(bool watched)
{
    if (watched == m_watched) {
        return;
    }
    m_watched = watched;
    m_channels.watch(watched);
    m_loop.cancel(m_timer);
    if (watched) {
        refresh_condition();
    }
}

void Instrument::refresh(std::function<void()> done)
{
    const std::shared_ptr<void> last = m_loop.join(kRefreshBound, std::move(done));
    m_channels.settle([last] {}, kRefreshBound);
    m_controller.refresh_condition([last] {});
    check_identity();
}

void Instrument::count(std::function<void()> done)
{
    const std::shared_ptr<void> last = m_loop.join(kRefreshBound, std::move(done));
    m_channels.copy_records();
    m_controller.refresh_condition([last] {});
    m_counters.fetch(
        [this, last](const std::shared_ptr<const Counters>& counters) { take_counters(counters); });
}

void Instrument::refresh_power_up(std::function<void()> done)
{
    const std::shared_ptr<void> last = m_loop.join(kRefreshBound, std::move(done));
    m_controller.refresh_power_up([last] {});
}

void Instrument::take_reachable(bool reachable)
{
    if (reachable) {
        m_channels.restart();
        refresh_identity();
    }
    for (const Events& listener : m_listeners) {
        if (listener.service) {
            listener.service(reachable);
        }
    }
}

void Instrument::take_counters(const std::shared_ptr<const Counters>& counters)
{
    m_last_counters = counters;
    for (const Events& listener : m_listeners) {
        if (listener.instrument) {
            listener.instrument();
        }
    }
}

void Instrument::refresh_identity()
{
    m_controller.refresh_all([this] { m_channels.settle([this] { check_identity(); }); });
}

void Instrument::check_identity()
{
    Network network = read_network(m_channels.record(1));
    if (network == m_network && m_controller.identity() == m_known_identity) {
        return;
    }
    m_network = std::move(network);
    m_known_identity = m_controller.identity();
    for (const Events& listener : m_listeners) {
        if (listener.identity) {
            listener.identity();
        }
        if (listener.instrument) {
            listener.instrument();
        }
    }
}

void Instrument::refresh_condition()
{
    m_timer = m_loop.after(kConditionPause, [this] { refresh_condition(); });
    m_controller.refresh_condition([this] { check_identity(); });
}

uint16_t Instrument::raw_port() const
{
    const ORVAN_CONFIG* const record = m_channels.record(1);
    const std::string text =
        record != nullptr ? orvan_records::stored_bytes(OrvanData::orvanMap[ODT_IF_PORT], *record) : "";
    uint16_t port = 0;
    std::from_chars(text.data(), text.data() + text.size(), port);
    return port == 0 ? kUsualRawPort : port;
}

Json Instrument::json() const
{
    const Identity& identity = m_controller.identity();
    const Counters* const counters = m_last_counters.get();
    Json json = json_object();
    cJSON* const root = json.get();
    add(root, "manufacturer", json_string(identity.manufacturer));
    add(root, "model", json_string(identity.model));
    add(root, "serial", json_string(identity.serial));
    add(root, "firmware", json_string(identity.firmware));
    add(root, "hostname", json_string(identity.hostname));
    add(root, "mac", json_string(m_network.mac));
    add(root, "addresses", text_array(m_network.addresses));
    add(root, "network", network_json(m_network));
    add(root, "interfaces", interfaces_json(m_network, raw_port()));
    cJSON_AddNumberToObject(root, "channels", m_channels.count());
    for (const char* name : {"fan", "battery", "self_test"}) {
        add(root, name, condition_member(m_controller.condition(), name));
    }
    add(root, "clients", clients_json(counters));
    add(root, "last_errors", copied(counters, "last_errors", cJSON_CreateArray()));
    add(root, "service", service_json(m_link.reachable(), counters));
    return json;
}

} // namespace orvan_web
