#include "json.h"

#include <cctype>

#include "utf8.h"

namespace orvan_web {
namespace {

struct TextDeleter {
    void operator()(char* text) const { cJSON_free(text); }
};

void drop_members(cJSON* value, std::string_view suffix)
{
    for (cJSON* child = value->child; child != nullptr;) {
        cJSON* const next = child->next;
        if (child->string != nullptr && std::string_view(child->string).ends_with(suffix)) {
            cJSON_Delete(cJSON_DetachItemViaPointer(value, child));
        } else {
            drop_members(child, suffix);
        }
        child = next;
    }
}

// Equal but for members whose name ends so.
bool same(const cJSON* a, const cJSON* b, std::string_view ignored_suffix)
{
    if (a == nullptr || b == nullptr) {
        return a == b;
    }
    const Json x(cJSON_Duplicate(a, 1));
    const Json y(cJSON_Duplicate(b, 1));
    drop_members(x.get(), ignored_suffix);
    drop_members(y.get(), ignored_suffix);
    return cJSON_Compare(x.get(), y.get(), 1) != 0;
}

// cJSON would end a text there.
bool has_null_character(std::string_view text)
{
    constexpr std::string_view kNull = "\\u0000";
    for (size_t at = 0; (at = text.find('\\', at)) != std::string_view::npos; at += 2) {
        if (text.substr(at).starts_with(kNull)) {
            return true;
        }
    }
    return false;
}

} // namespace

Json parse_json(std::string_view text)
{
    if (has_null_character(text)) {
        return nullptr;
    }
    const char* end = nullptr;
    Json json(cJSON_ParseWithLengthOpts(text.data(), text.size(), &end, 0));
    for (; json && end != text.data() + text.size(); ++end) {
        if (std::isspace(static_cast<unsigned char>(*end)) == 0) {
            return nullptr;
        }
    }
    return json;
}

std::string to_text(const cJSON* json)
{
    const std::unique_ptr<char, TextDeleter> text(cJSON_PrintUnformatted(json));
    return text ? text.get() : "null";
}

Json json_object()
{
    return Json(cJSON_CreateObject());
}

Json json_string(std::string_view bytes)
{
    return Json(cJSON_CreateString(as_utf8(bytes).c_str()));
}

double number_member(const cJSON* object, const char* name)
{
    const cJSON* const value = cJSON_GetObjectItemCaseSensitive(object, name);
    return cJSON_IsNumber(value) != 0 ? value->valuedouble : 0;
}

bool bool_member(const cJSON* object, const char* name)
{
    return cJSON_IsTrue(cJSON_GetObjectItemCaseSensitive(object, name)) != 0;
}

std::string string_member(const cJSON* object, const char* name)
{
    const char* const text = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(object, name));
    return text != nullptr ? text : "";
}

Json changed_members(const cJSON* before, const cJSON* now, std::string_view ignored_suffix)
{
    Json changes = json_object();
    const cJSON* member = nullptr;
    cJSON_ArrayForEach(member, now)
    {
        if (!same(cJSON_GetObjectItemCaseSensitive(before, member->string), member, ignored_suffix)) {
            add(changes.get(), member->string, Json(cJSON_Duplicate(member, 1)));
        }
    }
    cJSON_ArrayForEach(member, before)
    {
        if (cJSON_GetObjectItemCaseSensitive(now, member->string) == nullptr) {
            cJSON_AddNullToObject(changes.get(), member->string);
        }
    }
    return changes->child != nullptr ? std::move(changes) : nullptr;
}

} // namespace orvan_web
