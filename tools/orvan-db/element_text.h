#ifndef ORVAN_DB_ELEMENT_TEXT_H
#define ORVAN_DB_ELEMENT_TEXT_H

#include <string>

#include <cjson/cJSON.h>

#include <dataorvan.h>

namespace orvan_db {

/** The bytes of an element; what tells two values apart. Of a text those up to its end. */
std::string stored_bytes(const OrvanElementData& element, const ORVAN_CONFIG& record);

/**
 * An element for people: ON or OFF, a number in the unit that SCPI uses, a text in quotes with C escapes
 * for what is no printable ASCII.
 */
std::string element_text(const OrvanElementData& element, const ORVAN_CONFIG& record);

/**
 * An element as a JSON value: true or false, a number in the unit that SCPI uses (null for one that JSON
 * does not have), a string in which each byte stands as the character of its code.
 *
 * @return a new value that the caller owns
 */
cJSON* element_json(const OrvanElementData& element, const ORVAN_CONFIG& record);

} // namespace orvan_db

#endif
