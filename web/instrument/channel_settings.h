/**
 * The settings of a channel: one table for what a client sees of them, what is sent to the module, and where
 * the channel's record has them.
 */
#ifndef ORVAN_WEB_CHANNEL_SETTINGS_H
#define ORVAN_WEB_CHANNEL_SETTINGS_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <dataorvan.h>

namespace orvan_web {

enum class SettingKind : uint8_t {
    kNumber, /**< in the unit */
    kInteger,
    kSwitch,
    kChoice, /**< one of `choices`, in their short form */
    kText,   /**< up to 31 printable characters of ASCII, without ';' and quotes */
};

struct ChannelSetting {
    const char* path; /**< place in the JSON of a channel, "am/depth_percent"; its unit is in the name */
    const char* group;
    const char* label;
    const char* unit; /**< as shown; empty for none */
    SettingKind kind;
    const char* choices; /**< as SCPI spells them, separated by '|': "INTernal|EXTernal"; null for none */
    const char* scpi;    /**< header of the command, and with '?' of its query */
    OrvanElement tag;
    OrvanElement min; /**< tags of the limits; ODT_NO_TAG for none */
    OrvanElement max;
    bool read_only;
    bool asked; /**< false: the query has side effects, so the record counts */
};

/** All settings, in the order in which they are shown. */
std::span<const ChannelSetting> channel_settings();

/** Index of the setting at this path; empty if there is none. */
std::optional<size_t> setting_at(std::string_view path);

/** A value of a setting: unknown, a switch, a number, or a text or choice. */
using SettingValue = std::variant<std::monostate, bool, double, std::string>;

/** The value in a channel's record. Unknown if the record's text is not in the form of a reply. */
SettingValue value_of_record(const ChannelSetting& setting, const ORVAN_CONFIG& record);

/** The value in the module's reply to the query; unknown if it does not fit the kind. */
SettingValue value_of_reply(const ChannelSetting& setting, std::string_view reply);

struct SettingLimits {
    double min;
    double max;

    bool operator==(const SettingLimits&) const = default;
};

/** The limits in a channel's record; empty if it has none. */
std::optional<SettingLimits> limits_of_record(const ChannelSetting& setting, const ORVAN_CONFIG& record);

/** Whether the setting has limits that its module can be asked for. */
bool has_limits(const ChannelSetting& setting);

/** The choices in their short form, "INT", "EXT". */
std::vector<std::string> choices_of(const ChannelSetting& setting);

/**
 * The parameter of the command that sets a value that a user has written, checked only so far that it cannot
 * be anything but one parameter: the module knows the units and the limits.
 *
 * @param text "2.5 GHz", "-10", "on", "ext", "RAMP"; a '%', '°', or 'µ' is written as SCPI has it
 * @return empty if the text cannot be a value of this kind
 */
std::optional<std::string> parameter_of(const ChannelSetting& setting, std::string_view text);

} // namespace orvan_web

#endif
