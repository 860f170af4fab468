/**
 * The interface for programs and for the page: routes, event stream, OpenAPI document.
 */
#ifndef ORVAN_WEB_API_H
#define ORVAN_WEB_API_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "api/event_hub.h"
#include "http/access.h"
#include "http/exchange.h"
#include "instrument/instrument.h"

namespace orvan_web {

struct ApiOptions {
    std::string version;            /**< of the software */
    std::function<Access()> access; /**< any thread; of somebody without a token */
};

/**
 * Handlers are called on the HTTP thread and do their work on the instrument's loop. Must outlive the server.
 */
class Api {
public:
    Api(InstrumentLoop& loop, Instrument& instrument, ApiOptions options);

    /** Its routes, to which the server's other ones may be added. */
    std::vector<Route> routes();

    /** Makes the OpenAPI document of all these routes. Before the server runs. */
    void describe(const std::vector<Route>& all);

    /** A viewer of GET /api/v1/events. Any thread. */
    void on_stream(std::shared_ptr<EventStream> stream);

    // ---- for the handlers, on the loop's thread

    InstrumentLoop& loop() const { return m_loop; }
    Instrument& instrument() const { return m_instrument; }
    const std::string& version() const { return m_options.version; }
    size_t viewers() const { return m_hub.viewers(); }
    /** The document of GET /api/v1/instrument, as it was last known. */
    Json instrument_document() const;
    const std::string& openapi() const { return m_openapi; }

private:
    InstrumentLoop& m_loop;
    Instrument& m_instrument;
    const ApiOptions m_options;
    EventHub m_hub;
    std::string m_openapi;
};

} // namespace orvan_web

#endif
