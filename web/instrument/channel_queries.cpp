#include "channel_queries.h"

#include <cstdlib>
#include <cstring>
#include <vector>

namespace orvan_web {
namespace {

const std::vector<ChannelQuery>& table()
{
    static const std::vector<ChannelQuery> queries = [] {
        std::vector<ChannelQuery> all;
        const auto settings = channel_settings();
        for (size_t i = 0; i < settings.size(); ++i) {
            if (settings[i].asked) {
                all.push_back({i, ChannelQuery::Of::kValue});
            }
        }
        for (size_t i = 0; i < settings.size(); ++i) {
            if (has_limits(settings[i])) {
                all.push_back({i, ChannelQuery::Of::kMin});
                all.push_back({i, ChannelQuery::Of::kMax});
            }
        }
        return all;
    }();
    return queries;
}

} // namespace

std::span<const ChannelQuery> channel_queries()
{
    return table();
}

size_t value_queries()
{
    size_t count = 0;
    while (table()[count].of == ChannelQuery::Of::kValue) {
        ++count;
    }
    return count;
}

std::optional<size_t> query_for(size_t setting, ChannelQuery::Of of)
{
    for (size_t i = 0; i < table().size(); ++i) {
        if (table()[i].setting == setting && table()[i].of == of) {
            return i;
        }
    }
    return std::nullopt;
}

std::string query_text(const ChannelQuery& query)
{
    std::string text = channel_settings()[query.setting].scpi;
    text += '?';
    if (query.of != ChannelQuery::Of::kValue) {
        text += query.of == ChannelQuery::Of::kMin ? " MIN" : " MAX";
    }
    return text;
}

// As the library's records have it: the digits of an integer, a word of its own for on, 31 bytes of a text.
bool record_shows(const ChannelSetting& setting, const ORVAN_CONFIG& record, std::string_view reply)
{
    const OrvanElementData& element = OrvanData::orvanMap[setting.tag];
    const std::string text(reply);
    const SettingValue value = value_of_record(setting, record);
    const double* const number = std::get_if<double>(&value);
    switch (element.type) {
    case TYPE_BOOL:
        return value == SettingValue(text == "1" || text == "ON" || text == "On");
    case TYPE_INT32:
    case TYPE_UINT32:
        return number != nullptr && *number == static_cast<double>(std::strtoll(text.c_str(), nullptr, 10));
    case TYPE_STRING: {
        const char* const stored = reinterpret_cast<const char*>(&record) + element.pos;
        return std::string_view(stored, ::strnlen(stored, element.size)) == reply.substr(0, element.size - 1);
    }
    default:
        return number != nullptr && *number == std::strtod(text.c_str(), nullptr);
    }
}

} // namespace orvan_web
