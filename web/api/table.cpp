#include "table.h"

#include <charconv>

namespace orvan_web {

void ApiTable::add(const char* method, const char* path, bool changes, const char* summary,
                   const char* request, const char* response, Handler handler)
{
    auto shared = std::make_shared<const Handler>(std::move(handler));
    m_rows.push_back({method, path, changes, summary, request, response,
                      [&loop = m_api.loop(), shared](SharedExchange exchange, Parameters parameters) {
                          loop.post(
                              [shared, exchange = std::move(exchange), parameters = std::move(parameters)] {
                                  (*shared)(exchange, parameters);
                              });
                      }});
}

std::vector<Route> ApiTable::rows()
{
    for (const auto add_routes : {add_instrument_routes, add_channel_routes, add_scpi_routes,
                                  add_setup_routes, add_standard_routes}) {
        add_routes(*this);
    }
    return std::move(m_rows);
}

Response json_reply(const Json& json)
{
    Response response;
    response.body = to_text(json);
    return response;
}

Response problem_with(int status, std::string_view detail, const char* member, Json value)
{
    Response response = problem(status, detail);
    const Json json = parse_json(response.body);
    add(json.get(), member, std::move(value));
    response.body = to_text(json);
    return response;
}

Response unanswered(const Answer& answer)
{
    switch (answer.outcome) {
    case Answer::Outcome::kTimeout:
        return problem(504, "The instrument did not answer in time.");
    case Answer::Outcome::kBusy:
        return problem(503, "Too many requests are waiting for the instrument.");
    default:
        return problem(503, "The instrument's service cannot be reached.");
    }
}

Json errors_json(const std::vector<ScpiError>& errors)
{
    Json array(cJSON_CreateArray());
    for (const ScpiError& error : errors) {
        cJSON* const entry = cJSON_CreateObject();
        cJSON_AddItemToArray(array.get(), entry);
        cJSON_AddNumberToObject(entry, "number", error.number);
        add(entry, "text", json_string(error.text));
    }
    return array;
}

std::optional<int> number_of(const std::string& text, int least, int most)
{
    int number = 0;
    const char* const end = text.data() + text.size();
    const auto [after, fault] = std::from_chars(text.data(), end, number);
    const bool good = fault == std::errc() && after == end && number >= least && number <= most;
    return good ? std::optional(number) : std::nullopt;
}

} // namespace orvan_web
