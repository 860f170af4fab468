#include "change.h"
#include "settings_json.h"
#include "table.h"

namespace orvan_web {
namespace {

constexpr const char* kNoChannel = "The instrument does not have this channel.";
constexpr const char* kModuleFailed =
    "The channel's module did not answer its last request. It is tried again within half a minute.";

/** A PATCH on its way: one setting after the other, so that each error belongs to one. */
struct Patch {
    std::shared_ptr<Exchange> exchange;
    Instrument& instrument;
    int channel;
    Changes changes;
    std::vector<size_t> done{}; // settings whose commands were sent
    size_t next = 0;
};

Json channel_member(Instrument& instrument, int channel)
{
    Json json = json_object();
    add(json.get(), "channel", channel_json(*instrument.channels().find(channel)));
    return json;
}

void finish(const std::shared_ptr<Patch>& patch)
{
    patch->instrument.channels().ask(patch->channel, patch->done, [patch] {
        const Json result = channel_member(patch->instrument, patch->channel);
        if (patch->changes.errors.empty()) {
            patch->exchange->reply(json_reply(result));
            return;
        }
        Response response = problem_with(422, "Some settings were refused; the others have been applied.",
                                         "errors", field_errors_json(patch->changes.errors));
        const Json json = parse_json(response.body);
        add(json.get(), "channel", Json(cJSON_DetachItemFromObject(result.get(), "channel")));
        response.body = to_text(json);
        patch->exchange->reply(std::move(response));
    });
}

void send_next(const std::shared_ptr<Patch>& patch)
{
    if (patch->next == patch->changes.commands.size()) {
        finish(patch);
        return;
    }
    const Change& change = patch->changes.commands[patch->next++];
    patch->done.push_back(change.setting);
    patch->instrument.link().ask(
        for_channel(patch->channel, change.command), [patch, &change](const Answer& answer) {
            if (!answer.answered()) {
                patch->exchange->reply(unanswered(answer));
            } else if (answer.module_failed()) {
                patch->exchange->reply(problem_with(503, "The channel's module cannot be reached.", "errors",
                                                    errors_json(answer.errors)));
            } else {
                for (const ScpiError& error : answer.errors) {
                    patch->changes.errors.push_back({channel_settings()[change.setting].path, error});
                }
                send_next(patch);
            }
        });
}

void patch_channel(Instrument& instrument, const SharedExchange& exchange, int channel)
{
    const Json body = parse_json(exchange->request().body);
    if (cJSON_IsObject(body.get()) == 0) {
        exchange->reply(problem(400, "The body must be a JSON object with settings."));
    } else if (instrument.channels().find(channel)->failed) {
        exchange->reply(problem(503, kModuleFailed));
    } else {
        send_next(std::make_shared<Patch>(Patch{exchange, instrument, channel, read_changes(body.get())}));
    }
}

// The number of a channel that exists; otherwise the exchange has got its reply.
std::optional<int> channel_of(const ApiTable::Parameters& parameters, Instrument& instrument,
                              Exchange& exchange)
{
    const std::optional<int> channel = number_of(parameters.front(), 1, instrument.channels().count());
    if (!channel) {
        exchange.reply(problem(404, kNoChannel));
    }
    return channel;
}

} // namespace

void add_channel_routes(ApiTable& table)
{
    Instrument& instrument = table.instrument();

    table.add("GET", "/api/v1/settings", false, "The settings of a channel: names, units, kinds", nullptr,
              R"({"$ref":"#/components/schemas/Settings"})",
              [](const SharedExchange& exchange, const ApiTable::Parameters&) {
                  exchange->reply(json_reply(settings_json()));
              });

    table.add("GET", "/api/v1/channels", false, "All channels with their settings", nullptr,
              R"({"$ref":"#/components/schemas/Channels"})",
              [&instrument](const SharedExchange& exchange, const ApiTable::Parameters&) {
                  instrument.channels().settle([&instrument, exchange] {
                      Json json = json_object();
                      cJSON* const list = cJSON_AddArrayToObject(json.get(), "channels");
                      for (int channel = 1; channel <= instrument.channels().count(); ++channel) {
                          cJSON_AddItemToArray(list,
                                               channel_json(*instrument.channels().find(channel)).release());
                      }
                      exchange->reply(json_reply(json));
                  });
              });

    table.add("GET", "/api/v1/channels/{channel}", false, "One channel with its settings", nullptr,
              R"({"$ref":"#/components/schemas/Channel"})",
              [&instrument](const SharedExchange& exchange, const ApiTable::Parameters& parameters) {
                  instrument.channels().settle([&instrument, exchange, parameters] {
                      if (const auto channel = channel_of(parameters, instrument, *exchange)) {
                          exchange->reply(json_reply(channel_json(*instrument.channels().find(*channel))));
                      }
                  });
              });

    table.add("PATCH", "/api/v1/channels/{channel}", true,
              "Change settings of a channel; a text may have a unit, as in \"2.5 GHz\"",
              R"({"$ref":"#/components/schemas/ChannelPatch"})",
              R"({"$ref":"#/components/schemas/PatchedChannel"})",
              [&instrument](const SharedExchange& exchange, const ApiTable::Parameters& parameters) {
                  if (!instrument.reachable()) {
                      exchange->reply(unanswered({}));
                      return;
                  }
                  instrument.channels().recount([&instrument, exchange, parameters] {
                      if (const auto channel = channel_of(parameters, instrument, *exchange)) {
                          patch_channel(instrument, exchange, *channel);
                      }
                  });
              });
}

} // namespace orvan_web
