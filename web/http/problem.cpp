#include <memory>

#include <cjson/cJSON.h>

#include "http/exchange.h"
#include "http/status.h"

namespace orvan_web {

const char* reason_phrase(int status)
{
    static const std::map<int, const char*> phrases{
        {200, "OK"},
        {201, "Created"},
        {204, "No Content"},
        {304, "Not Modified"},
        {400, "Bad Request"},
        {401, "Unauthorized"},
        {403, "Forbidden"},
        {404, "Not Found"},
        {405, "Method Not Allowed"},
        {408, "Request Timeout"},
        {409, "Conflict"},
        {413, "Content Too Large"},
        {415, "Unsupported Media Type"},
        {421, "Misdirected Request"},
        {422, "Unprocessable Content"},
        {429, "Too Many Requests"},
        {500, "Internal Server Error"},
        {501, "Not Implemented"},
        {502, "Bad Gateway"},
        {503, "Service Unavailable"},
        {504, "Gateway Timeout"},
    };
    const auto found = phrases.find(status);
    return found == phrases.end() ? "Error" : found->second;
}

Response problem(int status, std::string_view detail)
{
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> document(cJSON_CreateObject(), cJSON_Delete);
    cJSON_AddStringToObject(document.get(), "type", "about:blank");
    cJSON_AddStringToObject(document.get(), "title", reason_phrase(status));
    cJSON_AddNumberToObject(document.get(), "status", status);
    if (!detail.empty()) {
        cJSON_AddStringToObject(document.get(), "detail", std::string(detail).c_str());
    }
    const std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_PrintUnformatted(document.get()),
                                                            cJSON_free);
    return {status, "application/problem+json", text.get(), {}};
}

} // namespace orvan_web
