/**
 * Ownership of cJSON values.
 */
#ifndef ORVAN_WEB_JSON_H
#define ORVAN_WEB_JSON_H

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <cjson/cJSON.h>

namespace orvan_web {

struct JsonDeleter {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
};
using Json = std::unique_ptr<cJSON, JsonDeleter>;

/** @return null if the text is not JSON, if more than white space follows the value, or if a text in it has a
 *          null character */
Json parse_json(std::string_view text);

/** Compact, without line breaks. */
std::string to_text(const cJSON* json);
inline std::string to_text(const Json& json)
{
    return to_text(json.get());
}

/** Adds a member, whose value the object then owns. */
inline void add(cJSON* object, const char* name, Json value)
{
    cJSON_AddItemToObject(object, name, value.release());
}

Json json_object();
/** A string of valid UTF-8, whatever the bytes are. */
Json json_string(std::string_view bytes);

/** Members of an object; 0, false or "" if it has none of that name and type. */
double number_member(const cJSON* object, const char* name);
bool bool_member(const cJSON* object, const char* name);
std::string string_member(const cJSON* object, const char* name);

/**
 * The members of `now` whose values differ from those in `before`; a member that has gone is null.
 *
 * @param ignored_suffix members, at any depth, whose name ends so make no difference: "_s" for times
 * @return null if there are none
 */
Json changed_members(const cJSON* before, const cJSON* now, std::string_view ignored_suffix);

} // namespace orvan_web

#endif
