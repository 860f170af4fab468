#include "output.h"

#include <algorithm>
#include <cstdio>
#include <memory>

#include <cjson/cJSON.h>

namespace orvan_maint {

using namespace HaldeElec::Orvan;

namespace {

using Lines = std::vector<std::vector<std::string>>;
using Json = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

std::string table(const Lines& lines)
{
    std::vector<size_t> widths;
    for (const auto& line : lines) {
        widths.resize(std::max(widths.size(), line.size()));
        for (size_t i = 0; i < line.size(); ++i) {
            widths[i] = std::max(widths[i], line[i].size());
        }
    }
    std::string text;
    for (const auto& line : lines) {
        std::string row;
        for (size_t i = 0; i < line.size(); ++i) {
            row += line[i] + std::string(widths[i] - line[i].size() + 2, ' ');
        }
        row.erase(row.find_last_not_of(' ') + 1);
        text += row + "\n";
    }
    text.pop_back();
    return text;
}

std::string printed(const cJSON* json)
{
    char* const text = cJSON_Print(json);
    std::string copy = text != nullptr ? text : "";
    cJSON_free(text);
    return copy;
}

cJSON* json_of(const Identity& identity)
{
    cJSON* const object = cJSON_CreateObject();
    cJSON_AddStringToObject(object, "mac", mac_text(identity.mac).c_str());
    cJSON_AddStringToObject(object, "address", address_text(identity.address).c_str());
    for (const RowName& name : kRowNames) {
        if (identity.rows.contains(name.letter)) {
            cJSON_AddStringToObject(object, name.key, text_of(identity.rows, name.letter).c_str());
        }
    }
    return object;
}

std::string bits_of(const OptionRow& row)
{
    const std::string first = std::to_string(row.bit_start);
    return row.bit_num == 1 ? first : first + "-" + std::to_string(row.bit_start + row.bit_num - 1);
}

constexpr const char* kFrequencyCode = "frequency code";

} // namespace

std::string instrument_table(const std::vector<Identity>& instruments)
{
    Lines lines = {{"address", "hardware address", "model", "serial number", "host name", "software"}};
    for (const Identity& identity : instruments) {
        const Rows& rows = identity.rows;
        lines.push_back({address_text(identity.address), mac_text(identity.mac),
                         text_of(rows, FLASH_MODELNAME), text_of(rows, FLASH_SERIALNUMBER),
                         text_of(rows, FLASH_HOSTNAME), text_of(rows, FLASH_CSCIVER)});
    }
    return table(lines);
}

std::string instruments_json(const std::vector<Identity>& instruments)
{
    const Json array(cJSON_CreateArray(), cJSON_Delete);
    for (const Identity& identity : instruments) {
        cJSON_AddItemToArray(array.get(), json_of(identity));
    }
    return printed(array.get());
}

std::string identity_text(const Identity& identity)
{
    Lines lines = {{"answers at", address_text(identity.address)}, {"answers as", mac_text(identity.mac)}};
    for (const RowName& name : kRowNames) {
        if (identity.rows.contains(name.letter)) {
            lines.push_back({name.title, text_of(identity.rows, name.letter)});
        }
    }
    return table(lines);
}

std::string identity_json(const Identity& identity)
{
    const Json object(json_of(identity), cJSON_Delete);
    return printed(object.get());
}

std::string options_table(const std::vector<OptionRow>& rows)
{
    Lines lines = {{"option", "bits", "value", ""}};
    for (const OptionRow& row : rows) {
        lines.push_back({row.symbol.empty() ? kFrequencyCode : row.symbol, bits_of(row),
                         std::to_string(row.value), row.modify ? "" : "cannot be changed"});
    }
    char word[8];
    std::snprintf(word, sizeof word, "0x%04X", static_cast<unsigned>(option_word(rows)));
    return table(lines) + "\nword " + word;
}

std::string options_json(const std::vector<OptionRow>& rows)
{
    const Json object(cJSON_CreateObject(), cJSON_Delete);
    cJSON_AddNumberToObject(object.get(), "word", option_word(rows));
    cJSON* const array = cJSON_AddArrayToObject(object.get(), "options");
    for (const OptionRow& row : rows) {
        cJSON* const item = cJSON_CreateObject();
        cJSON_AddStringToObject(item, "option", row.symbol.c_str());
        cJSON_AddNumberToObject(item, "bit", row.bit_start);
        cJSON_AddNumberToObject(item, "bits", row.bit_num);
        cJSON_AddNumberToObject(item, "value", row.value);
        cJSON_AddBoolToObject(item, "modify", row.modify);
        cJSON_AddItemToArray(array, item);
    }
    return printed(object.get());
}

} // namespace orvan_maint
