#ifndef ORVAN_WEB_OPENAPI_H
#define ORVAN_WEB_OPENAPI_H

#include <string>
#include <vector>

#include "http/exchange.h"
#include "instrument/json.h"

namespace orvan_web {

/** The OpenAPI 3.1 document of these routes, and of the event stream. */
std::string openapi_document(const std::vector<Route>& routes, const std::string& version);

/** The schemas that routes refer to (JSON Schema 2020-12): those of channels are made from the table of
 *  settings. Most have an example. */
Json openapi_schemas();

} // namespace orvan_web

#endif
