/**
 * The changes that a PATCH of a channel asks for.
 */
#ifndef ORVAN_WEB_CHANGE_H
#define ORVAN_WEB_CHANGE_H

#include <string>
#include <vector>

#include "instrument/json.h"
#include "instrument/response.h"

namespace orvan_web {

struct Change {
    size_t setting;      /**< index of channel_settings() */
    std::string command; /**< ":FREQ 2.5 GHz" */
};

struct FieldError {
    std::string field; /**< path of the setting */
    ScpiError error;
};

struct Changes {
    std::vector<Change> commands;   /**< those that switch something on or off are last */
    std::vector<FieldError> errors; /**< of fields that are no settings, or whose values cannot be one */
};

/** @param body an object with settings, nested as in a channel */
Changes read_changes(const cJSON* body);

/** [{"field":..,"number":..,"text":..}] */
Json field_errors_json(const std::vector<FieldError>& errors);

} // namespace orvan_web

#endif
