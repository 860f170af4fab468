#include "settings_json.h"

namespace orvan_web {

const char* kind_name(SettingKind kind)
{
    switch (kind) {
    case SettingKind::kNumber:
        return "number";
    case SettingKind::kInteger:
        return "integer";
    case SettingKind::kSwitch:
        return "switch";
    case SettingKind::kChoice:
        return "choice";
    case SettingKind::kText:
        return "text";
    }
    return "";
}

Json settings_json()
{
    Json json = json_object();
    cJSON* const list = cJSON_AddArrayToObject(json.get(), "settings");
    for (const ChannelSetting& setting : channel_settings()) {
        cJSON* const entry = cJSON_CreateObject();
        cJSON_AddItemToArray(list, entry);
        cJSON_AddStringToObject(entry, "path", setting.path);
        cJSON_AddStringToObject(entry, "group", setting.group);
        cJSON_AddStringToObject(entry, "label", setting.label);
        cJSON_AddStringToObject(entry, "unit", setting.unit);
        cJSON_AddStringToObject(entry, "kind", kind_name(setting.kind));
        cJSON* const choices = cJSON_AddArrayToObject(entry, "choices");
        for (const std::string& choice : choices_of(setting)) {
            cJSON_AddItemToArray(choices, json_string(choice).release());
        }
        cJSON_AddStringToObject(entry, "scpi", setting.scpi);
        cJSON_AddBoolToObject(entry, "read_only", setting.read_only);
    }
    return json;
}

} // namespace orvan_web
