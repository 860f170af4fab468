/**
 * The rows of the API's table of routes, file by file.
 */
#ifndef ORVAN_WEB_TABLE_H
#define ORVAN_WEB_TABLE_H

#include <optional>
#include <string>
#include <vector>

#include "api/api.h"

namespace orvan_web {

using SharedExchange = std::shared_ptr<Exchange>;

class ApiTable {
public:
    using Parameters = std::vector<std::string>;
    /** Called on the instrument's loop. */
    using Handler = std::function<void(const SharedExchange&, const Parameters&)>;

    explicit ApiTable(Api& api) : m_api(api) {}

    /** All rows. */
    std::vector<Route> rows();

    Api& api() const { return m_api; }
    Instrument& instrument() const { return m_api.instrument(); }

    void add(const char* method, const char* path, bool changes, const char* summary, const char* request,
             const char* response, Handler handler);

private:
    Api& m_api;
    std::vector<Route> m_rows;
};

void add_instrument_routes(ApiTable& table);
void add_channel_routes(ApiTable& table);
void add_scpi_routes(ApiTable& table);
void add_setup_routes(ApiTable& table);
void add_standard_routes(ApiTable& table);

// ---- for the handlers

Response json_reply(const Json& json);
/** A problem document with more members. */
Response problem_with(int status, std::string_view detail, const char* member, Json value);
/** Why the instrument did not answer: 503, or 504 if it was silent. */
Response unanswered(const Answer& answer);
Json errors_json(const std::vector<ScpiError>& errors);

/** The number in a path; empty if it is none from `least` to `most`. */
std::optional<int> number_of(const std::string& text, int least, int most);

} // namespace orvan_web

#endif
