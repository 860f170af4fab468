#include "lxi_identification.h"
#include "metrics.h"
#include "table.h"

namespace orvan_web {

void add_standard_routes(ApiTable& table)
{
    using Parameters = ApiTable::Parameters;
    Instrument& instrument = table.instrument();

    table.add("GET", "/api/v1/openapi.json", false, "This document", nullptr, R"({"type":"object"})",
              [&api = table.api()](const SharedExchange& exchange, const Parameters&) {
                  Response response;
                  response.body = api.openapi();
                  exchange->reply(std::move(response));
              });

    table.add("GET", "/metrics", false, "Counters and gauges in the Prometheus text format", nullptr, nullptr,
              [&api = table.api(), &instrument](const SharedExchange& exchange, const Parameters&) {
                  instrument.count([&api, &instrument, exchange] {
                      Response response;
                      response.type = "text/plain; version=0.0.4; charset=utf-8";
                      response.body = metrics_text(instrument, api.version(), api.viewers());
                      exchange->reply(std::move(response));
                  });
              });

    table.add("GET", "/lxi/identification", false, "Identification as LXI has it", nullptr, nullptr,
              [&instrument](const SharedExchange& exchange, const Parameters&) {
                  instrument.count([&instrument, exchange] {
                      Response response;
                      response.type = "application/xml";
                      response.body = lxi_identification(instrument, exchange->request().header("host"));
                      exchange->reply(std::move(response));
                  });
              });
}

} // namespace orvan_web
