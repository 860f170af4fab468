/**
 * What is known about a channel, and its JSON.
 */
#ifndef ORVAN_WEB_CHANNEL_STATE_H
#define ORVAN_WEB_CHANNEL_STATE_H

#include <optional>
#include <string>
#include <vector>

#include "channel_settings.h"
#include "json.h"

namespace orvan_web {

struct ChannelState {
    int channel = 0;
    bool failed = false; /**< the last request to its module failed */
    std::string model;
    std::string serial;
    std::optional<double> temperature_celsius;
    std::vector<SettingValue> values; /**< by the index of channel_settings() */
    std::vector<std::optional<SettingLimits>> limits;

    explicit ChannelState(int number);
};

/** A value as JSON; null if it is unknown. */
Json value_json(const SettingValue& value);

/** The whole channel as an object. */
Json channel_json(const ChannelState& state);

/** The members that differ, nested as in the whole, and "channel"; null if none do. */
Json channel_changes(const ChannelState& before, const ChannelState& now);

} // namespace orvan_web

#endif
