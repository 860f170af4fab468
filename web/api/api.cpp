#include "api.h"

#include "openapi.h"
#include "table.h"

namespace orvan_web {

Api::Api(InstrumentLoop& loop, Instrument& instrument, ApiOptions options)
    : m_loop(loop), m_instrument(instrument), m_options(std::move(options)),
      m_hub(instrument, [this] { return instrument_document(); }), m_openapi("{}")
{
}

std::vector<Route> Api::routes()
{
    return ApiTable(*this).rows();
}

void Api::describe(const std::vector<Route>& all)
{
    m_openapi = openapi_document(all, m_options.version);
}

void Api::on_stream(std::shared_ptr<EventStream> stream)
{
    m_loop.post([this, stream = std::move(stream)] { m_hub.add(stream); });
}

Json Api::instrument_document() const
{
    const Access access = m_options.access();
    Json json = m_instrument.json();
    cJSON* const entry = cJSON_AddObjectToObject(json.get(), "access");
    cJSON_AddBoolToObject(entry, "changes", access.changes);
    cJSON_AddBoolToObject(entry, "password_set", access.password_set);
    add(entry, "reason", json_string(access.reason));
    return json;
}

} // namespace orvan_web
