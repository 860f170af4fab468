#include "history.h"

#include <cmath>

namespace orvan_web {
namespace {

void add_value(cJSON* array, const std::vector<std::optional<double>>& values, size_t index)
{
    const bool known = index < values.size() && values[index];
    cJSON_AddItemToArray(array, known ? cJSON_CreateNumber(*values[index]) : cJSON_CreateNull());
}

} // namespace

void History::take_point()
{
    m_timer = m_loop.after(kPause, [this] { take_point(); });
    m_channels.copy_records();
    const size_t level = *setting_at("level_dbm");
    Point point{InstrumentLoop::Clock::now(), {}, {}};
    for (int channel = 1; channel <= m_channels.count(); ++channel) {
        const SettingValue value = m_channels.known_value(channel, level);
        const double* const number = std::get_if<double>(&value);
        point.levels.push_back(number != nullptr ? std::optional(*number) : std::nullopt);
        point.temperatures.push_back(m_channels.find(channel)->temperature_celsius);
    }
    m_points.push_back(std::move(point));
    if (m_points.size() > kPoints) {
        m_points.pop_front();
    }
}

Json History::json() const
{
    Json json = json_object();
    cJSON* const seconds = cJSON_AddArrayToObject(json.get(), "seconds");
    const auto now = InstrumentLoop::Clock::now();
    for (const Point& point : m_points) {
        const auto age = std::chrono::duration_cast<std::chrono::milliseconds>(now - point.time);
        cJSON_AddItemToArray(seconds, cJSON_CreateNumber(-static_cast<double>(age.count()) / 1000));
    }
    cJSON* const channels = cJSON_AddArrayToObject(json.get(), "channels");
    for (int channel = 1; channel <= m_channels.count(); ++channel) {
        cJSON* const entry = cJSON_CreateObject();
        cJSON_AddItemToArray(channels, entry);
        cJSON_AddNumberToObject(entry, "channel", channel);
        cJSON* const temperatures = cJSON_AddArrayToObject(entry, "temperature_celsius");
        cJSON* const levels = cJSON_AddArrayToObject(entry, "level_dbm");
        for (const Point& point : m_points) {
            add_value(temperatures, point.temperatures, static_cast<size_t>(channel) - 1);
            add_value(levels, point.levels, static_cast<size_t>(channel) - 1);
        }
    }
    return json;
}

} // namespace orvan_web
