#include "channel_records/element_text.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace orvan_records {
namespace {

const char* place_of(const OrvanElementData& element, const ORVAN_CONFIG& record)
{
    return reinterpret_cast<const char*>(&record) + element.pos;
}

template <typename T>
T load(const OrvanElementData& element, const ORVAN_CONFIG& record)
{
    T value;
    std::memcpy(&value, place_of(element, record), sizeof value);
    return value;
}

std::string_view text_of(const OrvanElementData& element, const ORVAN_CONFIG& record)
{
    const char* const text = place_of(element, record);
    return {text, ::strnlen(text, element.size)};
}

double number_of(const OrvanElementData& element, const ORVAN_CONFIG& record)
{
    switch (element.type) {
    case TYPE_INT32:
        return load<int32_t>(element, record) / element.factor;
    case TYPE_UINT32:
        return load<uint32_t>(element, record) / element.factor;
    case TYPE_INT64:
        return static_cast<double>(load<int64_t>(element, record)) / element.factor;
    case TYPE_UINT64:
        return static_cast<double>(load<uint64_t>(element, record)) / element.factor;
    case TYPE_FLOAT:
        return static_cast<double>(load<float>(element, record)) / element.factor;
    case TYPE_DOUBLE:
        return load<double>(element, record) / element.factor;
    case TYPE_BOOL:
    case TYPE_STRING:
        break;
    }
    return std::nan("");
}

bool is_plain(char c)
{
    return c >= ' ' && c <= '~' && c != '"' && c != '\\';
}

} // namespace

std::string stored_bytes(const OrvanElementData& element, const ORVAN_CONFIG& record)
{
    if (element.type == TYPE_STRING) {
        return std::string(text_of(element, record));
    }
    return {place_of(element, record), element.size};
}

std::string element_text(const OrvanElementData& element, const ORVAN_CONFIG& record)
{
    char part[40];
    if (element.type == TYPE_BOOL) {
        return load<int>(element, record) != 0 ? "ON" : "OFF";
    }
    if (element.type != TYPE_STRING) {
        std::snprintf(part, sizeof part, "%.15g", number_of(element, record));
        return part;
    }
    std::string quoted = "\"";
    for (const char c : text_of(element, record)) {
        std::snprintf(part, sizeof part, "\\x%02x", static_cast<unsigned char>(c));
        quoted += c == '"' || c == '\\' ? std::string{'\\', c} : is_plain(c) ? std::string{c} : part;
    }
    return quoted + '"';
}

cJSON* element_json(const OrvanElementData& element, const ORVAN_CONFIG& record)
{
    if (element.type == TYPE_BOOL) {
        return cJSON_CreateBool(load<int>(element, record));
    }
    if (element.type != TYPE_STRING) {
        return cJSON_CreateNumber(number_of(element, record));
    }
    std::string utf8;
    for (const char c : text_of(element, record)) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            utf8 += c;
        } else {
            utf8 += static_cast<char>(0xC0 | (byte >> 6));
            utf8 += static_cast<char>(0x80 | (byte & 0x3F));
        }
    }
    return cJSON_CreateString(utf8.c_str());
}

} // namespace orvan_records
