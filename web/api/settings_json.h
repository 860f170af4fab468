/**
 * What a program is told of the table of settings.
 */
#ifndef ORVAN_WEB_SETTINGS_JSON_H
#define ORVAN_WEB_SETTINGS_JSON_H

#include "instrument/channel_settings.h"
#include "instrument/json.h"

namespace orvan_web {

/** "number", "integer", "switch", "choice" or "text" */
const char* kind_name(SettingKind kind);

/** {"settings":[..]}, in the order of the table. */
Json settings_json();

} // namespace orvan_web

#endif
