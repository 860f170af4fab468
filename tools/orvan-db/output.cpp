#include "output.h"

#include <cstdio>
#include <memory>

#include "channel_records/element_text.h"
#include <orvan_element_names.h>

namespace orvan_db {
namespace {

struct JsonDeleter {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
    void operator()(char* text) const { cJSON_free(text); }
};
using Json = std::unique_ptr<cJSON, JsonDeleter>;
using JsonText = std::unique_ptr<char, JsonDeleter>;

Items chosen_items(const Options& options, int channel, const ORVAN_CONFIG& record)
{
    Items items;
    for (int tag = 0; tag < static_cast<int>(kOrvanElementCount); ++tag) {
        if (options.tag < 0 || tag == options.tag) {
            items.push_back({channel, tag, &record});
        }
    }
    return items;
}

cJSON* channel_json(const Item& item)
{
    return item.channel == 0 ? cJSON_CreateNull() : cJSON_CreateNumber(item.channel);
}

cJSON* value_json(const Item& item)
{
    const OrvanElementData& element = OrvanData::orvanMap[item.tag];
    cJSON* const value = orvan_records::element_json(element, *item.record);
    if (item.setup == nullptr) {
        return value;
    }
    cJSON* const both = cJSON_CreateObject();
    cJSON_AddItemToObject(both, "live", value);
    cJSON_AddItemToObject(both, "setup", orvan_records::element_json(element, *item.setup));
    return both;
}

} // namespace

Items live_items(const Options& options, const orvan_records::Records& records)
{
    Items items;
    for (int channel = 1; channel <= static_cast<int>(records.size()); ++channel) {
        if (options.channel == 0 || channel == options.channel) {
            for (const Item& item :
                 chosen_items(options, channel, records[static_cast<size_t>(channel) - 1])) {
                items.push_back(item);
            }
        }
    }
    return items;
}

Items setup_items(const Options& options, const orvan_records::Setup& setup)
{
    Items items = chosen_items(options, options.channel, setup.record);
    std::erase_if(items, [&](const Item& item) { return !setup.present[static_cast<size_t>(item.tag)]; });
    return items;
}

Items differing_items(const Options& options, const orvan_records::Records& records,
                      const orvan_records::Setup& setup)
{
    Items items = live_items(options, records);
    std::erase_if(items, [&](const Item& item) {
        const OrvanElementData& element = OrvanData::orvanMap[item.tag];
        return !setup.present[static_cast<size_t>(item.tag)] || !orvan_records::is_recalled(item.tag) ||
               orvan_records::stored_bytes(element, *item.record) ==
                   orvan_records::stored_bytes(element, setup.record);
    });
    for (Item& item : items) {
        item.setup = &setup.record;
    }
    return items;
}

std::string json_document(const Items& items)
{
    const Json root(cJSON_CreateObject());
    cJSON* const channels = cJSON_AddArrayToObject(root.get(), "channels");
    cJSON* object = nullptr;
    int last = -1;
    for (const Item& item : items) {
        if (item.channel != last) {
            last = item.channel;
            object = cJSON_CreateObject();
            cJSON_AddItemToObject(object, "channel", channel_json(item));
            cJSON_AddItemToArray(channels, object);
        }
        cJSON_AddItemToObject(object, orvan_common::kElementNames[item.tag].tag, value_json(item));
    }
    return JsonText(cJSON_Print(root.get())).get();
}

std::string item_line(const Options& options, const Item& item)
{
    const OrvanElementData& element = OrvanData::orvanMap[item.tag];
    const orvan_common::ElementName& name = orvan_common::kElementNames[item.tag];
    if (options.json) {
        const Json line(cJSON_CreateObject());
        cJSON_AddItemToObject(line.get(), "channel", channel_json(item));
        cJSON_AddStringToObject(line.get(), "tag", name.tag);
        cJSON_AddItemToObject(line.get(), "value", value_json(item));
        return JsonText(cJSON_PrintUnformatted(line.get())).get();
    }
    const std::string channel = item.channel == 0 ? "-" : std::to_string(item.channel);
    char names[80];
    std::snprintf(names, sizeof names, "%s  %-23s %-33s ", channel.c_str(), name.tag,
                  (std::string(name.section) + "." + name.field).c_str());
    std::string line = names + orvan_records::element_text(element, *item.record);
    if (item.setup != nullptr) {
        line += " -> " + orvan_records::element_text(element, *item.setup);
    }
    return line;
}

} // namespace orvan_db
