/**
 * A command's description as JSON.
 */
#ifndef SCPI_REFERENCE_JSON_TEXT_H
#define SCPI_REFERENCE_JSON_TEXT_H

#include <string>

#include "descriptions.h"

namespace scpi_reference {

/** {"header":..,"set":..,"query":..,"text":..,"parameters":..} in one line. The texts lose their Markdown. */
std::string command_json(const Description& command);

} // namespace scpi_reference

#endif
