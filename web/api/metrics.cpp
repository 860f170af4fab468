#include "metrics.h"

#include <charconv>
#include <cmath>
#include <vector>

namespace orvan_web {
namespace {

std::string number_text(double value)
{
    if (std::isnan(value)) {
        return "NaN";
    }
    if (std::isinf(value)) {
        return value > 0 ? "+Inf" : "-Inf";
    }
    char digits[400]; // as many as the largest has
    return {digits, std::to_chars(digits, digits + sizeof digits, value, std::chars_format::fixed).ptr};
}

/** name="value", escaped. */
std::string label(const char* name, std::string_view value)
{
    std::string text = std::string(name) + "=\"";
    for (const char c : value) {
        text += c == '\n' ? "\\n" : c == '"' || c == '\\' ? std::string{'\\', c} : std::string{c};
    }
    return text + '"';
}

class Writer {
public:
    /** Begins a metric; its samples follow. */
    void begin(const char* name, const char* type, const char* help)
    {
        m_name = name;
        m_text += std::string("# HELP ") + name + ' ' + help + "\n# TYPE " + name + ' ' + type + '\n';
    }
    void sample(double value, const std::string& labels = {}, const char* suffix = "")
    {
        m_text += std::string(m_name) + suffix + (labels.empty() ? "" : '{' + labels + '}') + ' ' +
                  number_text(value) + '\n';
    }
    void single(const char* name, const char* type, const char* help, double value)
    {
        begin(name, type, help);
        sample(value);
    }
    std::string take() { return std::move(m_text); }

private:
    const char* m_name = "";
    std::string m_text;
};

void write_protocols(Writer& out, const cJSON* document)
{
    constexpr struct {
        const char* name;
        const char* type;
        const char* help;
        const char* member;
    } kMetrics[] = {
        {"orvan_messages_total", "counter", "Program messages executed", "messages"},
        {"orvan_message_errors_total", "counter", "Errors that messages have caused", "errors"},
        {"orvan_clients", "gauge", "Clients that are connected", "clients"},
        {"orvan_clients_refused_total", "counter", "Clients refused because there were too many", "refused"},
    };
    for (const auto& metric : kMetrics) {
        out.begin(metric.name, metric.type, metric.help);
        const cJSON* protocol = nullptr;
        cJSON_ArrayForEach(protocol, cJSON_GetObjectItemCaseSensitive(document, "protocols"))
        {
            out.sample(number_member(protocol, metric.member), label("protocol", protocol->string));
        }
    }
}

void write_latency(Writer& out, const cJSON* document)
{
    const cJSON* const latency = cJSON_GetObjectItemCaseSensitive(document, "latency");
    const cJSON* const counts = cJSON_GetObjectItemCaseSensitive(latency, "counts");
    const cJSON* const bounds = cJSON_GetObjectItemCaseSensitive(latency, "bounds_s");
    if (cJSON_GetArraySize(counts) != cJSON_GetArraySize(bounds) + 1) {
        return;
    }
    out.begin("orvan_message_duration_seconds", "histogram", "Time that executing a message took");
    double total = 0;
    const cJSON* bound = bounds->child;
    for (const cJSON* count = counts->child; count != nullptr; count = count->next) {
        total += count->valuedouble;
        out.sample(total, label("le", bound != nullptr ? number_text(bound->valuedouble) : "+Inf"),
                   "_bucket");
        bound = bound != nullptr ? bound->next : nullptr;
    }
    out.sample(number_member(latency, "sum_s"), {}, "_sum");
    out.sample(total, {}, "_count");
}

void write_modules(Writer& out, const Counters& counters)
{
    constexpr struct {
        const char* name;
        const char* help;
        double ModuleCounters::*member;
    } kMetrics[] = {
        {"orvan_module_requests_total", "Requests sent to the channel's module", &ModuleCounters::requests},
        {"orvan_module_timeouts_total", "Requests that the module did not answer in time",
         &ModuleCounters::timeouts},
        {"orvan_module_link_errors_total", "Requests for which the module could not be reached",
         &ModuleCounters::link_errors},
    };
    const auto channel = [](const ModuleCounters& module) {
        return label("channel", std::to_string(module.module));
    };
    for (const auto& metric : kMetrics) {
        out.begin(metric.name, "counter", metric.help);
        for (const ModuleCounters& module : counters.modules) {
            out.sample(module.*metric.member, channel(module));
        }
    }
    out.begin("orvan_module_up", "gauge", "Whether the module has answered the last request");
    for (const ModuleCounters& module : counters.modules) {
        out.sample(module.failed ? 0 : 1, channel(module));
    }
}

void write_condition(Writer& out, const Instrument& instrument, const Channels& channels)
{
    out.begin("orvan_channel_temperature_celsius", "gauge", "Temperature of the channel's module");
    for (int channel = 1; channel <= channels.count(); ++channel) {
        if (const std::optional<double> temperature = channels.find(channel)->temperature_celsius) {
            out.sample(*temperature, label("channel", std::to_string(channel)));
        }
    }
    const Condition& condition = instrument.condition();
    if (!condition.fan_mode.empty()) {
        out.single("orvan_fan_automatic", "gauge",
                   "Whether the fans follow the temperature (1) or run at a fixed speed (0)",
                   condition.fan_mode == "AUTO" ? 1 : 0);
    }
    if (condition.battery_percent) {
        out.single("orvan_battery_charge_ratio", "gauge", "Charge of the battery",
                   *condition.battery_percent / 100);
    }
}

} // namespace

std::string metrics_text(Instrument& instrument, const std::string& version, size_t viewers)
{
    Writer out;
    const Identity& identity = instrument.identity();
    const Counters* const counters = instrument.counters().get();
    out.begin("orvan_build_info", "gauge", "Versions of the software and of the instrument");
    out.sample(1, label("version", version) + ',' + label("firmware", identity.firmware) + ',' +
                      label("model", identity.model) + ',' + label("serial", identity.serial));
    out.single("orvan_up", "gauge", "Whether the instrument's service can be reached",
               counters != nullptr ? 1 : 0);
    out.single("orvan_web_viewers", "gauge", "Viewers of the live stream", static_cast<double>(viewers));
    if (counters != nullptr) {
        const cJSON* const document = counters->document.get();
        out.single("orvan_ready", "gauge", "Whether the service has started and executes messages",
                   bool_member(document, "ready") ? 1 : 0);
        out.single("orvan_uptime_seconds", "gauge", "Time since the service was started",
                   number_member(document, "uptime_s"));
        out.single("orvan_resident_memory_bytes", "gauge", "Memory of the service",
                   number_member(document, "resident_bytes"));
        write_protocols(out, document);
        write_latency(out, document);
        write_modules(out, *counters);
    }
    write_condition(out, instrument, instrument.channels());
    return out.take();
}

} // namespace orvan_web
