#include "json_schema.h"

#include <cmath>
#include <cstring>
#include <set>

namespace orvan_test {
namespace {

bool is_type(const std::string& type, const cJSON* value)
{
    return type == "object"    ? cJSON_IsObject(value) != 0
           : type == "array"   ? cJSON_IsArray(value) != 0
           : type == "string"  ? cJSON_IsString(value) != 0
           : type == "boolean" ? cJSON_IsBool(value) != 0
           : type == "null"    ? cJSON_IsNull(value) != 0
           : type == "number"  ? cJSON_IsNumber(value) != 0
           : type == "integer"
               ? cJSON_IsNumber(value) != 0 && std::floor(value->valuedouble) == value->valuedouble
               : false;
}

bool has_type(const cJSON* types, const cJSON* value)
{
    if (cJSON_IsString(types) != 0) {
        return is_type(types->valuestring, value);
    }
    const cJSON* type = nullptr;
    cJSON_ArrayForEach(type, types)
    {
        if (is_type(type->valuestring, value)) {
            return true;
        }
    }
    return false;
}

bool contains(const cJSON* list, const cJSON* value)
{
    const cJSON* entry = nullptr;
    cJSON_ArrayForEach(entry, list)
    {
        if (cJSON_Compare(entry, value, 1) != 0) {
            return true;
        }
    }
    return false;
}

const cJSON* resolved(const cJSON* document, std::string path)
{
    const cJSON* place = document;
    for (path.erase(0, 2); place != nullptr && !path.empty();) {
        const std::string name = path.substr(0, path.find('/'));
        path.erase(0, std::min(name.size() + 1, path.size()));
        place = cJSON_GetObjectItemCaseSensitive(place, name.c_str());
    }
    return place;
}

std::string properties_fault(const cJSON* document, const cJSON* schema, const cJSON* value)
{
    const cJSON* const properties = cJSON_GetObjectItemCaseSensitive(schema, "properties");
    const cJSON* const others = cJSON_GetObjectItemCaseSensitive(schema, "additionalProperties");
    const cJSON* member = nullptr;
    cJSON_ArrayForEach(member, value)
    {
        const cJSON* const known = cJSON_GetObjectItemCaseSensitive(properties, member->string);
        if (known == nullptr && cJSON_IsFalse(others) != 0) {
            return std::string(member->string) + " is not allowed";
        }
        const cJSON* const rule = known != nullptr ? known : others;
        const std::string fault = cJSON_IsObject(rule) != 0 ? schema_fault(document, rule, member) : "";
        if (!fault.empty()) {
            return std::string(member->string) + ": " + fault;
        }
    }
    const cJSON* name = nullptr;
    cJSON_ArrayForEach(name, cJSON_GetObjectItemCaseSensitive(schema, "required"))
    {
        if (cJSON_IsObject(value) != 0 &&
            cJSON_GetObjectItemCaseSensitive(value, name->valuestring) == nullptr) {
            return std::string(name->valuestring) + " is missing";
        }
    }
    return {};
}

} // namespace

std::string schema_fault(const cJSON* document, const cJSON* schema, const cJSON* value)
{
    static const std::set<std::string> kKnown = {
        "type",     "enum",    "properties", "required", "additionalProperties",
        "items",    "$ref",    "minimum",    "maximum",  "description",
        "examples", "readOnly"};
    const cJSON* keyword = nullptr;
    cJSON_ArrayForEach(keyword, schema)
    {
        const std::string name = keyword->string;
        if (kKnown.count(name) == 0) {
            return "unknown keyword " + name;
        }
        if (name == "$ref") {
            const cJSON* const target = resolved(document, keyword->valuestring);
            return target != nullptr ? schema_fault(document, target, value)
                                     : std::string("no ") + keyword->valuestring;
        }
        if ((name == "type" && !has_type(keyword, value)) || (name == "enum" && !contains(keyword, value)) ||
            (name == "minimum" && value->valuedouble < keyword->valuedouble) ||
            (name == "maximum" && value->valuedouble > keyword->valuedouble)) {
            return orvan_web::to_text(value) + " does not match " + name + " " + orvan_web::to_text(keyword);
        }
        if (name == "items" && cJSON_IsArray(value) != 0) {
            const cJSON* entry = nullptr;
            cJSON_ArrayForEach(entry, value)
            {
                if (const std::string fault = schema_fault(document, keyword, entry); !fault.empty()) {
                    return "[]: " + fault;
                }
            }
        }
    }
    return cJSON_IsObject(value) != 0 ? properties_fault(document, schema, value) : "";
}

} // namespace orvan_test
