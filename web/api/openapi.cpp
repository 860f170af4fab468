#include "openapi.h"

#include <algorithm>
#include <cctype>

namespace orvan_web {
namespace {

constexpr const char* kProblems =
    R"({"description":"The request was refused, or the instrument cannot be reached",
    "content":{"application/problem+json":{"schema":{"$ref":"#/components/schemas/Problem"}}}})";

constexpr const char* kEvents = R"({"get":{"summary":"Live stream of what changes","operationId":"getEvents",
    "responses":{"200":{"description":"Server-sent events. First an event \"instrument\" and for each channel an event \"channel\" with the whole document, then events with the members that have changed; \"service\" when the service is lost or reached.",
    "content":{"text/event-stream":{"schema":{"type":"string"}}}}}}})";

Json from(const char* text)
{
    return parse_json(text);
}

// "getChannelsChannel" for GET /api/v1/channels/{channel}.
std::string operation_id(const Route& route)
{
    std::string id;
    bool upper = false;
    for (const char c : std::string_view(route.method)) {
        id += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    std::string_view path = route.path;
    if (path.starts_with("/api/v1")) {
        path.remove_prefix(7);
    }
    for (const char c : path) {
        const bool letter = std::isalnum(static_cast<unsigned char>(c)) != 0;
        if (letter) {
            id += upper ? static_cast<char>(std::toupper(static_cast<unsigned char>(c))) : c;
        }
        upper = !letter;
    }
    return id;
}

Json parameters_of(std::string_view path)
{
    Json parameters(cJSON_CreateArray());
    for (size_t begin = 0; (begin = path.find('{', begin)) != std::string_view::npos;) {
        const size_t end = path.find('}', begin);
        cJSON* const entry = cJSON_CreateObject();
        cJSON_AddItemToArray(parameters.get(), entry);
        add(entry, "name", json_string(path.substr(begin + 1, end - begin - 1)));
        cJSON_AddStringToObject(entry, "in", "path");
        cJSON_AddTrueToObject(entry, "required");
        add(entry, "schema", from(R"({"type":"integer"})"));
        begin = end;
    }
    return parameters;
}

Json json_content(const char* schema)
{
    Json content = json_object();
    cJSON* const type = cJSON_AddObjectToObject(content.get(), "application/json");
    add(type, "schema", from(schema));
    return content;
}

Json operation(const Route& route)
{
    Json operation = json_object();
    cJSON* const root = operation.get();
    cJSON_AddStringToObject(root, "summary", route.summary);
    add(root, "operationId", json_string(operation_id(route)));
    Json parameters = parameters_of(route.path);
    if (parameters->child != nullptr) {
        add(root, "parameters", std::move(parameters));
    }
    if (route.request_schema != nullptr) {
        cJSON* const body = cJSON_AddObjectToObject(root, "requestBody");
        cJSON_AddTrueToObject(body, "required");
        add(body, "content", json_content(route.request_schema));
    }
    cJSON* const responses = cJSON_AddObjectToObject(root, "responses");
    cJSON* const good = cJSON_AddObjectToObject(responses, "200");
    cJSON_AddStringToObject(good, "description", "Done");
    if (route.response_schema != nullptr) {
        add(good, "content", json_content(route.response_schema));
    }
    add(responses, "default", from(kProblems));
    if (route.changes) {
        add(root, "security", from(R"([{"token":[]},{}])"));
    }
    return operation;
}

} // namespace

std::string openapi_document(const std::vector<Route>& routes, const std::string& version)
{
    Json document = json_object();
    cJSON* const root = document.get();
    cJSON_AddStringToObject(root, "openapi", "3.1.0");
    cJSON* const info = cJSON_AddObjectToObject(root, "info");
    cJSON_AddStringToObject(info, "title", "Orvan signal generator");
    add(info, "version", json_string(version));
    cJSON* const paths = cJSON_AddObjectToObject(root, "paths");
    for (const Route& route : routes) {
        cJSON* path = cJSON_GetObjectItemCaseSensitive(paths, route.path);
        path = path != nullptr ? path : cJSON_AddObjectToObject(paths, route.path);
        std::string method = route.method;
        std::transform(method.begin(), method.end(), method.begin(),
                       [](char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); });
        add(path, method.c_str(), operation(route));
    }
    add(paths, "/api/v1/events", from(kEvents));
    cJSON* const components = cJSON_AddObjectToObject(root, "components");
    add(components, "schemas", openapi_schemas());
    add(components, "securitySchemes", from(R"({"token":{"type":"http","scheme":"bearer",
        "description":"A token of a session or of a program; the instrument's own page needs none if no password is set."}})"));
    return to_text(document);
}

} // namespace orvan_web
