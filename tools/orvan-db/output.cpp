#include "output.h"

#include "element_text.h"

#include <orvan_element_names.h>

#include <cstdio>
#include <memory>

namespace orvan_db {
namespace {

struct JsonDeleter {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
    void operator()(char* text) const { cJSON_free(text); }
};
using Json = std::unique_ptr<cJSON, JsonDeleter>;
using JsonText = std::unique_ptr<char, JsonDeleter>;

const ORVAN_CONFIG& record_of(const Records& records, int channel)
{
    return records[static_cast<size_t>(channel) - 1];
}

} // namespace

std::string json_document(const Options& options, const Records& records)
{
    const Json root(cJSON_CreateObject());
    cJSON* const channels = cJSON_AddArrayToObject(root.get(), "channels");
    for_each_element(
        options, records, [&, object = static_cast<cJSON*>(nullptr), last = 0](int channel, int tag) mutable {
            if (channel != last) {
                last = channel;
                object = cJSON_CreateObject();
                cJSON_AddNumberToObject(object, "channel", channel);
                cJSON_AddItemToArray(channels, object);
            }
            cJSON_AddItemToObject(object, kElementNames[tag].tag,
                                  element_json(OrvanData::orvanMap[tag], record_of(records, channel)));
        });
    return JsonText(cJSON_Print(root.get())).get();
}

std::string element_line(const Options& options, const Records& records, int channel, int tag)
{
    const OrvanElementData& element = OrvanData::orvanMap[tag];
    const ORVAN_CONFIG& record = record_of(records, channel);
    const ElementName& name = kElementNames[tag];
    if (options.json) {
        const Json line(cJSON_CreateObject());
        cJSON_AddNumberToObject(line.get(), "channel", channel);
        cJSON_AddStringToObject(line.get(), "tag", name.tag);
        cJSON_AddItemToObject(line.get(), "value", element_json(element, record));
        return JsonText(cJSON_PrintUnformatted(line.get())).get();
    }
    char names[80];
    std::snprintf(names, sizeof names, "%d  %-23s %-33s ", channel, name.tag,
                  (std::string(name.section) + "." + name.field).c_str());
    return names + element_text(element, record);
}

} // namespace orvan_db
