#include "setups.h"

#include <algorithm>
#include <ctime>

#include <sys/stat.h>

#include "channel_records/element_text.h"
#include "channel_records/setup_file.h"

namespace orvan_web {
namespace {

std::string utc_text(time_t time)
{
    tm parts{};
    char text[32];
    ::gmtime_r(&time, &parts);
    return {text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

// The texts that no reply has, such as "10MHz", are shown as the record has them.
Json shown(const ChannelSetting& setting, const ORVAN_CONFIG& record)
{
    const SettingValue value = value_of_record(setting, record);
    const bool known = !std::holds_alternative<std::monostate>(value);
    return known ? value_json(value)
                 : Json(orvan_records::element_json(OrvanData::orvanMap[setting.tag], record));
}

} // namespace

std::string Setups::file(int setup, int channel) const
{
    // The factory setup has one file for all channels.
    return setup == kFactorySetup ? m_folder + "/json/ch0.json"
                                  : m_folder + "/preset/" + std::to_string(channel) + "/preset-" +
                                        std::to_string(setup) + ".json";
}

bool Setups::stored(int setup) const
{
    struct stat info = {};
    for (int channel = 1; channel <= m_channels.count(); ++channel) {
        if (::stat(file(setup, channel).c_str(), &info) != 0) {
            return false;
        }
    }
    return m_channels.count() > 0;
}

Json Setups::list() const
{
    Json list(cJSON_CreateArray());
    for (int setup = kFactorySetup; setup <= kLastSetup; ++setup) {
        cJSON* const entry = cJSON_CreateObject();
        cJSON_AddItemToArray(list.get(), entry);
        cJSON_AddNumberToObject(entry, "setup", setup);
        cJSON_AddBoolToObject(entry, "factory", setup == kFactorySetup);
        const bool is_stored = stored(setup);
        cJSON_AddBoolToObject(entry, "stored", is_stored);
        time_t newest = 0;
        for (int channel = 1; channel <= m_channels.count(); ++channel) {
            struct stat info = {};
            if (::stat(file(setup, channel).c_str(), &info) == 0) {
                newest = std::max(newest, info.st_mtime);
            }
        }
        const bool has_time = is_stored && setup != kFactorySetup;
        add(entry, "stored_at", has_time ? json_string(utc_text(newest)) : Json(cJSON_CreateNull()));
    }
    return list;
}

Json Setups::differences(int setup, std::string& complaint) const
{
    Json list(cJSON_CreateArray());
    const auto settings = channel_settings();
    for (int channel = 1; channel <= m_channels.count(); ++channel) {
        const std::optional<orvan_records::Setup> stored =
            orvan_records::read_setup(file(setup, channel), complaint);
        if (!stored) {
            complaint = "channel " + std::to_string(channel) + ": " + complaint;
            return nullptr;
        }
        for (size_t i = 0; i < settings.size(); ++i) {
            const auto tag = static_cast<size_t>(settings[i].tag);
            const Json then = shown(settings[i], stored->record);
            const Json now = value_json(m_channels.find(channel)->values[i]);
            if (!stored->present[tag] || settings[i].read_only ||
                cJSON_Compare(now.get(), then.get(), 1) != 0) {
                continue;
            }
            cJSON* const entry = cJSON_CreateObject();
            cJSON_AddItemToArray(list.get(), entry);
            cJSON_AddNumberToObject(entry, "channel", channel);
            cJSON_AddStringToObject(entry, "path", settings[i].path);
            cJSON_AddStringToObject(entry, "label", settings[i].label);
            cJSON_AddStringToObject(entry, "group", settings[i].group);
            cJSON_AddStringToObject(entry, "unit", settings[i].unit);
            add(entry, "now", Json(cJSON_Duplicate(now.get(), 1)));
            add(entry, "setup", Json(cJSON_Duplicate(then.get(), 1)));
        }
    }
    return list;
}

} // namespace orvan_web
