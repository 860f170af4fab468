#include "base64.h"
#include "instrument/utf8.h"
#include "table.h"

namespace orvan_web {
namespace {

// Some commands take long: a recall with a module that does not answer, an update.
constexpr std::chrono::seconds kPatience{120};

constexpr const char* kBadLine =
    "\"line\" must be one program message, without a line feed outside of a block.";

Json answer_json(const Answer& answer)
{
    Json json = json_object();
    if (is_utf8(answer.response)) {
        add(json.get(), "response", json_string(answer.response));
    } else {
        add(json.get(), "response_base64", json_string(base64(answer.response)));
    }
    add(json.get(), "errors", errors_json(answer.errors));
    cJSON_AddNumberToObject(json.get(), "duration_ms", static_cast<double>(answer.duration.count()) / 1000);
    return json;
}

void execute(Instrument& instrument, const SharedExchange& exchange)
{
    constexpr int kMostChannels = 4; // that can be selected, installed or not
    const Json body = parse_json(exchange->request().body);
    const std::string line = string_member(body.get(), "line");
    const cJSON* const channel = cJSON_GetObjectItemCaseSensitive(body.get(), "channel");
    if (line.find_first_not_of(" \t\r") == std::string::npos || !is_one_message(line)) {
        exchange->reply(problem(400, kBadLine));
        return;
    }
    if (channel != nullptr &&
        (cJSON_IsNumber(channel) == 0 || channel->valuedouble < 1 || channel->valuedouble > kMostChannels ||
         channel->valuedouble != channel->valueint)) {
        exchange->reply(problem(400, "\"channel\" must be a number from 1 to 4."));
        return;
    }
    instrument.link().ask(
        for_channel(channel != nullptr ? channel->valueint : 1, line),
        [exchange](const Answer& answer) {
            exchange->reply(answer.answered() ? json_reply(answer_json(answer)) : unanswered(answer));
        },
        kPatience);
}

} // namespace

void add_scpi_routes(ApiTable& table)
{
    table.add(
        "POST", "/api/v1/scpi", true, "Execute one line of SCPI",
        R"({"$ref":"#/components/schemas/ScpiLine"})", R"({"$ref":"#/components/schemas/ScpiAnswer"})",
        [&instrument = table.instrument()](const SharedExchange& exchange, const ApiTable::Parameters&) {
            execute(instrument, exchange);
        });
}

} // namespace orvan_web
