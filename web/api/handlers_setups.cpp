#include "table.h"

namespace orvan_web {
namespace {

// With modules that do not answer, each of them takes 15 s.
constexpr std::chrono::seconds kPatience{120};

constexpr const char* kNoSetup = "There is no such setup.";
constexpr const char* kFactory = "The factory setup cannot be changed.";

using Setup = std::optional<int>;

Setup setup_of(const ApiTable::Parameters& parameters, Exchange& exchange)
{
    const Setup setup = number_of(parameters.front(), kFactorySetup, kLastSetup);
    if (!setup) {
        exchange.reply(problem(404, kNoSetup));
    }
    return setup;
}

// The number of a setup that may be changed; otherwise the exchange has got its reply.
Setup user_setup_of(const ApiTable::Parameters& parameters, Exchange& exchange)
{
    const Setup setup = setup_of(parameters, exchange);
    if (setup == kFactorySetup) {
        exchange.reply(problem(409, kFactory));
        return std::nullopt;
    }
    return setup;
}

// The number of a setup that has files; otherwise the exchange has got its reply.
Setup stored_setup_of(const ApiTable::Parameters& parameters, Exchange& exchange,
                      const Instrument& instrument)
{
    const Setup setup = setup_of(parameters, exchange);
    if (setup && !instrument.setups().stored(*setup)) {
        exchange.reply(problem(404, kNoSetup));
        return std::nullopt;
    }
    return setup;
}

void execute(Instrument& instrument, const SharedExchange& exchange, const char* command, int setup)
{
    instrument.link().ask(
        std::string(command) + " " + std::to_string(setup),
        [&instrument, exchange](const Answer& answer) {
            if (!answer.answered()) {
                exchange->reply(unanswered(answer));
            } else if (!answer.errors.empty()) {
                exchange->reply(
                    problem_with(422, "The instrument reported an error: " + answer.errors.front().text + ".",
                                 "errors", errors_json(answer.errors)));
            } else {
                instrument.channels().settle([exchange] { exchange->reply(json_reply(json_object())); });
            }
        },
        kPatience);
}

void list(Instrument& instrument, const SharedExchange& exchange)
{
    instrument.refresh_power_up([&instrument, exchange] {
        Json json = json_object();
        const Setup setup = instrument.power_up();
        add(json.get(), "power_up", Json(setup ? cJSON_CreateNumber(*setup) : cJSON_CreateNull()));
        add(json.get(), "setups", instrument.setups().list());
        exchange->reply(json_reply(json));
    });
}

void compare(Instrument& instrument, const SharedExchange& exchange, int setup)
{
    instrument.channels().settle([&instrument, exchange, setup] {
        std::string complaint;
        Json differences = instrument.setups().differences(setup, complaint);
        if (!differences) {
            exchange->reply(problem(422, "The setup cannot be used: " + complaint + "."));
            return;
        }
        Json json = json_object();
        cJSON_AddNumberToObject(json.get(), "setup", setup);
        add(json.get(), "differences", std::move(differences));
        exchange->reply(json_reply(json));
    });
}

} // namespace

void add_setup_routes(ApiTable& table)
{
    using Parameters = ApiTable::Parameters;
    constexpr const char* kEmpty = R"({"$ref":"#/components/schemas/Empty"})";
    Instrument& instrument = table.instrument();

    table.add(
        "GET", "/api/v1/setups", false, "The stored setups", nullptr,
        R"({"$ref":"#/components/schemas/Setups"})",
        [&instrument](const SharedExchange& exchange, const Parameters&) { list(instrument, exchange); });

    table.add("GET", "/api/v1/setups/{setup}", false, "What recalling a setup would change", nullptr,
              R"({"$ref":"#/components/schemas/SetupDifferences"})",
              [&instrument](const SharedExchange& exchange, const Parameters& parameters) {
                  if (const Setup setup = stored_setup_of(parameters, *exchange, instrument)) {
                      compare(instrument, exchange, *setup);
                  }
              });

    table.add("PUT", "/api/v1/setups/{setup}", true, "Store the settings of all channels as a setup", kEmpty,
              kEmpty, [&instrument](const SharedExchange& exchange, const Parameters& parameters) {
                  if (const Setup setup = user_setup_of(parameters, *exchange)) {
                      // What is stored is the records, which have what the modules have once these were
                      // asked.
                      instrument.channels().ask_all([&instrument, exchange, setup] {
                          execute(instrument, exchange, ":SYST:SET:STOR", *setup);
                      });
                  }
              });

    table.add("POST", "/api/v1/setups/{setup}/recall", true, "Load a setup into all channels", kEmpty, kEmpty,
              [&instrument](const SharedExchange& exchange, const Parameters& parameters) {
                  if (const Setup setup = stored_setup_of(parameters, *exchange, instrument)) {
                      execute(instrument, exchange, ":SYST:SET:REC", *setup);
                  }
              });

    table.add("DELETE", "/api/v1/setups/{setup}", true, "Delete a setup", nullptr, kEmpty,
              [&instrument](const SharedExchange& exchange, const Parameters& parameters) {
                  if (const Setup setup = user_setup_of(parameters, *exchange)) {
                      execute(instrument, exchange, ":SYST:SET:CLE", *setup);
                  }
              });
}

} // namespace orvan_web
