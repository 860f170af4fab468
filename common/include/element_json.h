/**
 * One element of a record as a JSON value, and back, in the form that `OrvanData` describes.
 */
#ifndef ORVAN_ELEMENT_JSON_H
#define ORVAN_ELEMENT_JSON_H

#include <dataorvan.h>

namespace orvan_common {

/**
 * @param element the element's row; `pos`, `type` and `size` count
 * @param record  start of the record
 * @return a new value that the caller owns; null when out of memory or the type is unknown
 */
cJSON* element_to_json(const OrvanElementData& element, const uint8_t* record);

/**
 * Stores a JSON value as the element. Allocates nothing.
 *
 * @param element the element's row; `pos`, `type` and `size` count
 * @param value   any JSON value
 * @param record  start of the record
 * @return false when the value does not fit the element; the record is then unchanged
 */
bool element_from_json(const OrvanElementData& element, const cJSON* value, uint8_t* record);

} // namespace orvan_common

#endif
