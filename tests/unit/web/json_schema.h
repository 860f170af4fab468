#ifndef ORVAN_TESTS_WEB_JSON_SCHEMA_H
#define ORVAN_TESTS_WEB_JSON_SCHEMA_H

#include <string>

#include "instrument/json.h"

namespace orvan_test {

/**
 * Checks a value against a JSON Schema, as far as the OpenAPI document uses it: type, enum, properties,
 * required, additionalProperties, items, minimum, maximum, and $ref into the document.
 *
 * @return what is wrong and where; empty if nothing is. A keyword that is not known here is wrong as well.
 */
std::string schema_fault(const cJSON* document, const cJSON* schema, const cJSON* value);

} // namespace orvan_test

#endif
