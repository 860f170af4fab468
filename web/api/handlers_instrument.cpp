#include "commands.h"
#include "table.h"

namespace orvan_web {

void add_instrument_routes(ApiTable& table)
{
    Instrument& instrument = table.instrument();

    table.add(
        "GET", "/api/v1/instrument", false, "Identity, network, clients and condition of the instrument",
        nullptr, R"({"$ref":"#/components/schemas/Instrument"})",
        [&api = table.api(), &instrument](const SharedExchange& exchange, const ApiTable::Parameters&) {
            instrument.refresh([&api, exchange] { exchange->reply(json_reply(api.instrument_document())); });
        });

    table.add("GET", "/api/v1/history", false, "Temperatures and levels of the last ten minutes", nullptr,
              R"({"$ref":"#/components/schemas/History"})",
              [&instrument](const SharedExchange& exchange, const ApiTable::Parameters&) {
                  exchange->reply(json_reply(instrument.history().json()));
              });

    table.add("GET", "/api/v1/commands", false, "All commands, for completion and help", nullptr,
              R"({"$ref":"#/components/schemas/Commands"})",
              [](const SharedExchange& exchange, const ApiTable::Parameters&) {
                  Response response;
                  response.body = kCommands;
                  response.headers.emplace_back("Cache-Control", "max-age=3600");
                  exchange->reply(std::move(response));
              });
}

} // namespace orvan_web
