// Values of settings: from a record, from a reply, and as a parameter of a command.
#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstring>

#include "channel_settings.h"
#include <scpi/extensions.h>
#include <scpi/units.h>

namespace orvan_web {
namespace {

constexpr size_t kMostText = kOrvanTextSize - 1;

template <typename T>
T load(const OrvanElementData& element, const ORVAN_CONFIG& record)
{
    T value;
    std::memcpy(&value, reinterpret_cast<const char*>(&record) + element.pos, sizeof value);
    return value;
}

std::string_view text_of(const OrvanElementData& element, const ORVAN_CONFIG& record)
{
    const char* const text = reinterpret_cast<const char*>(&record) + element.pos;
    return {text, ::strnlen(text, element.size)};
}

std::optional<double> number_of(const OrvanElementData& element, const ORVAN_CONFIG& record)
{
    switch (element.type) {
    case TYPE_INT32:
        return load<int32_t>(element, record) / element.factor;
    case TYPE_UINT32:
        return load<uint32_t>(element, record) / element.factor;
    case TYPE_DOUBLE:
        return load<double>(element, record) / element.factor;
    default: // the settings and their limits have no other types
        return std::nullopt;
    }
}

// A number of a reply, "5.0E-06", up to its end.
std::optional<double> plain_number(std::string_view text)
{
    double value = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (fault != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) {
        return std::nullopt;
    }
    return value;
}

char upper(char c)
{
    return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
}

bool same(std::string_view a, std::string_view b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return upper(x) == upper(y); });
}

// The choice's short form that a word means, in whatever form it is written.
std::optional<std::string> short_choice(const ChannelSetting& setting, std::string_view word)
{
    std::string_view rest = setting.choices;
    while (!rest.empty()) {
        const std::string_view choice = rest.substr(0, rest.find('|'));
        rest.remove_prefix(std::min(choice.size() + 1, rest.size()));
        std::string short_form;
        std::copy_if(choice.begin(), choice.end(), std::back_inserter(short_form),
                     [](char c) { return std::islower(static_cast<unsigned char>(c)) == 0; });
        if (same(word, choice) || same(word, short_form)) {
            return short_form;
        }
    }
    return std::nullopt;
}

std::string_view trimmed(std::string_view text)
{
    const size_t begin = std::min(text.find_first_not_of(' '), text.size());
    text.remove_prefix(begin);
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

// A number of a record, which may have the unit that its last command had: "10MHz".
std::optional<double> number_with_unit(std::string_view text)
{
    double value = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), value);
    const std::string_view unit = trimmed(text.substr(static_cast<size_t>(end - text.data())));
    if (fault != std::errc() || unit.empty()) {
        return plain_number(trimmed(text));
    }
    const scpi_unit_def_t* const found = SCPI_FindUnit(scpi_units_def, unit.data(), unit.size());
    return found != nullptr ? std::optional(value * found->mult) : std::nullopt;
}

std::string_view unquoted(std::string_view text)
{
    const bool quoted =
        text.size() >= 2 && (text.front() == '"' || text.front() == '\'') && text.back() == text.front();
    return quoted ? text.substr(1, text.size() - 2) : text;
}

// Replaces what is not ASCII or not SCPI in units.
std::string with_scpi_units(std::string_view text)
{
    constexpr std::pair<std::string_view, std::string_view> kSpellings[] = {
        {"%", "PCT"}, {"\u00b0", "DEG"}, {"\u00b5", "U"}, {"\u03bc", "U"}, {"\u2212", "-"}, {"\u00a0", " "}};
    std::string result(text);
    for (const auto& [shown, scpi] : kSpellings) {
        for (size_t at = 0; (at = result.find(shown, at)) != std::string::npos; at += scpi.size()) {
            result.replace(at, shown.size(), scpi);
        }
    }
    return result;
}

} // namespace

SettingValue value_of_record(const ChannelSetting& setting, const ORVAN_CONFIG& record)
{
    const OrvanElementData& element = OrvanData::orvanMap[setting.tag];
    if (element.type == TYPE_STRING) {
        const std::string_view text = text_of(element, record);
        if (!has_limits(setting)) {
            return value_of_reply(setting, text);
        }
        const std::optional<double> number = number_with_unit(text);
        return number ? SettingValue(*number) : SettingValue();
    }
    if (element.type == TYPE_BOOL) {
        return load<int>(element, record) != 0;
    }
    const std::optional<double> number = number_of(element, record);
    return number && std::isfinite(*number) ? SettingValue(*number) : SettingValue();
}

SettingValue value_of_reply(const ChannelSetting& setting, std::string_view reply)
{
    reply = trimmed(reply);
    switch (setting.kind) {
    case SettingKind::kNumber:
    case SettingKind::kInteger: {
        const std::optional<double> number = plain_number(reply);
        return number ? SettingValue(*number) : SettingValue();
    }
    case SettingKind::kSwitch:
        if (reply == "1" || same(reply, "ON")) {
            return true;
        }
        return reply == "0" || same(reply, "OFF") ? SettingValue(false) : SettingValue();
    case SettingKind::kChoice: {
        const std::optional<std::string> choice = short_choice(setting, reply);
        return choice ? SettingValue(*choice) : SettingValue();
    }
    case SettingKind::kText:
        return std::string(unquoted(reply));
    }
    return {};
}

std::optional<SettingLimits> limits_of_record(const ChannelSetting& setting, const ORVAN_CONFIG& record)
{
    if (setting.min == ODT_NO_TAG) {
        return std::nullopt;
    }
    const auto min = number_of(OrvanData::orvanMap[setting.min], record);
    const auto max = number_of(OrvanData::orvanMap[setting.max], record);
    if (!min || !max || !std::isfinite(*min) || !std::isfinite(*max) || !(*min < *max)) {
        return std::nullopt;
    }
    return SettingLimits{*min, *max};
}

bool has_limits(const ChannelSetting& setting)
{
    return setting.kind == SettingKind::kNumber || setting.kind == SettingKind::kInteger;
}

std::vector<std::string> choices_of(const ChannelSetting& setting)
{
    std::vector<std::string> result;
    std::string_view rest = setting.choices != nullptr ? setting.choices : "";
    while (!rest.empty()) {
        const std::string_view choice = rest.substr(0, rest.find('|'));
        rest.remove_prefix(std::min(choice.size() + 1, rest.size()));
        result.push_back(*short_choice(setting, choice));
    }
    return result;
}

std::optional<std::string> parameter_of(const ChannelSetting& setting, std::string_view text)
{
    text = trimmed(text);
    switch (setting.kind) {
    case SettingKind::kNumber:
    case SettingKind::kInteger: {
        constexpr size_t kLongest = 60;
        const std::string number = with_scpi_units(text);
        const bool plain = std::all_of(number.begin(), number.end(), [](char c) {
            return std::isalnum(static_cast<unsigned char>(c)) != 0 ||
                   std::string_view("+-. ").find(c) != std::string_view::npos;
        });
        return plain && !number.empty() && number.size() <= kLongest ? std::optional(number) : std::nullopt;
    }
    case SettingKind::kSwitch:
        for (const auto& [word, parameter] : {std::pair("ON", "ON"),
                                              {"1", "ON"},
                                              {"true", "ON"},
                                              {"OFF", "OFF"},
                                              {"0", "OFF"},
                                              {"false", "OFF"}}) {
            if (same(text, word)) {
                return parameter;
            }
        }
        return std::nullopt;
    case SettingKind::kChoice:
        return short_choice(setting, text);
    case SettingKind::kText: {
        const std::string_view name = unquoted(text);
        const bool plain = std::all_of(name.begin(), name.end(), [](char c) {
            return c >= ' ' && c <= '~' && c != ';' && c != '"' && c != '\'';
        });
        return plain && name.size() <= kMostText ? std::optional('"' + std::string(name) + '"')
                                                 : std::nullopt;
    }
    }
    return std::nullopt;
}

} // namespace orvan_web
