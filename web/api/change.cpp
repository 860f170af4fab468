#include "change.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "instrument/channel_settings.h"

namespace orvan_web {
namespace {

const ScpiError kNoSetting{-113, "No such setting"};
const ScpiError kReadOnly{-221, "This setting can only be read"};

// What a user would have written.
std::optional<std::string> text_of(const cJSON* value)
{
    if (cJSON_IsString(value) != 0) {
        return value->valuestring;
    }
    if (cJSON_IsBool(value) != 0) {
        return cJSON_IsTrue(value) != 0 ? "ON" : "OFF";
    }
    if (cJSON_IsNumber(value) != 0) {
        char digits[32];
        return std::string(digits, std::to_chars(digits, digits + sizeof digits, value->valuedouble).ptr);
    }
    return std::nullopt;
}

// A switch is no number, and 1 is no choice.
bool fits(const ChannelSetting& setting, const cJSON* value)
{
    const bool numeric = setting.kind == SettingKind::kNumber || setting.kind == SettingKind::kInteger;
    return cJSON_IsBool(value) != 0     ? setting.kind == SettingKind::kSwitch
           : cJSON_IsNumber(value) != 0 ? numeric || setting.kind == SettingKind::kSwitch
                                        : cJSON_IsString(value) != 0;
}

ScpiError value_error(const ChannelSetting& setting)
{
    switch (setting.kind) {
    case SettingKind::kNumber:
    case SettingKind::kInteger:
        return {-121, "Invalid character in number"};
    case SettingKind::kText:
        return {-151, "Invalid string data"};
    default:
        return {-224, "Illegal parameter value"};
    }
}

void read_value(const std::string& path, const cJSON* value, Changes& changes)
{
    const std::optional<size_t> index = setting_at(path);
    if (!index) {
        changes.errors.push_back({path, kNoSetting});
        return;
    }
    const ChannelSetting& setting = channel_settings()[*index];
    const std::optional<std::string> text = text_of(value);
    const std::optional<std::string> parameter =
        text && fits(setting, value) ? parameter_of(setting, *text) : std::nullopt;
    if (setting.read_only) {
        changes.errors.push_back({path, kReadOnly});
    } else if (!parameter) {
        changes.errors.push_back({path, value_error(setting)});
    } else {
        changes.commands.push_back({*index, std::string(setting.scpi) + " " + *parameter});
    }
}

} // namespace

Changes read_changes(const cJSON* body)
{
    Changes changes;
    const cJSON* member = nullptr;
    cJSON_ArrayForEach(member, body)
    {
        if (cJSON_IsObject(member) == 0) {
            read_value(member->string, member, changes);
            continue;
        }
        const cJSON* inner = nullptr;
        cJSON_ArrayForEach(inner, member)
        {
            read_value(std::string(member->string) + "/" + inner->string, inner, changes);
        }
    }
    std::stable_partition(changes.commands.begin(), changes.commands.end(), [](const Change& change) {
        return channel_settings()[change.setting].kind != SettingKind::kSwitch;
    });
    return changes;
}

Json field_errors_json(const std::vector<FieldError>& errors)
{
    Json array(cJSON_CreateArray());
    for (const auto& [field, error] : errors) {
        cJSON* const entry = cJSON_CreateObject();
        cJSON_AddItemToArray(array.get(), entry);
        add(entry, "field", json_string(field));
        cJSON_AddNumberToObject(entry, "number", error.number);
        add(entry, "text", json_string(error.text));
    }
    return array;
}

} // namespace orvan_web
