#ifndef ORVAN_CHANNEL_RECORDS_ELEMENT_TEXT_H
#define ORVAN_CHANNEL_RECORDS_ELEMENT_TEXT_H

#include <string>

#include <cjson/cJSON.h>

#include <dataorvan.h>

namespace orvan_records {

/** The bytes of an element, for comparison; of a text, those up to its end. */
std::string stored_bytes(const OrvanElementData& element, const ORVAN_CONFIG& record);

/**
 * An element in readable form: ON or OFF, a number in SCPI's unit, a text in quotes with C escapes for all
 * but printable ASCII.
 */
std::string element_text(const OrvanElementData& element, const ORVAN_CONFIG& record);

/**
 * An element as a JSON value: true or false, a number in SCPI's unit (null if JSON cannot represent it), a
 * string with one character per byte (Latin-1).
 *
 * @return a new value that the caller owns
 */
cJSON* element_json(const OrvanElementData& element, const ORVAN_CONFIG& record);

} // namespace orvan_records

#endif
