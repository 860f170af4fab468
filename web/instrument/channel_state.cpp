#include "channel_state.h"

#include <cstring>

namespace orvan_web {
namespace {

// The object in which the last part of the path is a member; made if needed.
cJSON* parent_of(cJSON* root, const char*& path)
{
    const char* const slash = std::strchr(path, '/');
    if (slash == nullptr) {
        return root;
    }
    const std::string name(path, slash);
    path = slash + 1;
    cJSON* const group = cJSON_GetObjectItemCaseSensitive(root, name.c_str());
    return group != nullptr ? group : cJSON_AddObjectToObject(root, name.c_str());
}

Json limits_json(const std::optional<SettingLimits>& limits)
{
    if (!limits) {
        return Json(cJSON_CreateNull());
    }
    const double both[] = {limits->min, limits->max};
    return Json(cJSON_CreateDoubleArray(both, 2));
}

Json number_or_null(const std::optional<double>& number)
{
    return Json(number ? cJSON_CreateNumber(*number) : cJSON_CreateNull());
}

// All members, or those that differ from `before`. JSON texts of both are not compared: this runs often.
Json members(const ChannelState& now, const ChannelState* before)
{
    Json json = json_object();
    cJSON* const root = json.get();
    cJSON_AddNumberToObject(root, "channel", now.channel);
    const cJSON* const only_channel = root->child;
    if (before == nullptr) {
        cJSON_AddTrueToObject(root, "present");
    }
    if (before == nullptr || before->failed != now.failed) {
        cJSON_AddBoolToObject(root, "failed", now.failed);
    }
    if (before == nullptr || before->model != now.model) {
        add(root, "model", json_string(now.model));
    }
    if (before == nullptr || before->serial != now.serial) {
        add(root, "serial", json_string(now.serial));
    }
    if (before == nullptr || before->temperature_celsius != now.temperature_celsius) {
        add(root, "temperature_celsius", number_or_null(now.temperature_celsius));
    }
    const auto settings = channel_settings();
    for (size_t i = 0; i < settings.size(); ++i) {
        if (before == nullptr || before->values[i] != now.values[i]) {
            const char* name = settings[i].path;
            cJSON* const parent = parent_of(root, name);
            add(parent, name, value_json(now.values[i]));
        }
    }
    Json limits = json_object();
    for (size_t i = 0; i < settings.size(); ++i) {
        if (before == nullptr ? now.limits[i].has_value() : before->limits[i] != now.limits[i]) {
            add(limits.get(), settings[i].path, limits_json(now.limits[i]));
        }
    }
    if (before == nullptr || limits->child != nullptr) {
        add(root, "limits", std::move(limits));
    }
    return only_channel->next != nullptr ? std::move(json) : nullptr;
}

} // namespace

ChannelState::ChannelState(int number)
    : channel(number), values(channel_settings().size()), limits(channel_settings().size())
{
}

Json value_json(const SettingValue& value)
{
    if (const bool* on = std::get_if<bool>(&value)) {
        return Json(cJSON_CreateBool(*on ? 1 : 0));
    }
    if (const double* number = std::get_if<double>(&value)) {
        return Json(cJSON_CreateNumber(*number));
    }
    if (const std::string* text = std::get_if<std::string>(&value)) {
        return json_string(*text);
    }
    return Json(cJSON_CreateNull());
}

Json channel_json(const ChannelState& state)
{
    return members(state, nullptr);
}

Json channel_changes(const ChannelState& before, const ChannelState& now)
{
    return members(now, &before);
}

} // namespace orvan_web
