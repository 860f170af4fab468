/**
 * Instruments and options in words and in JSON.
 */
#ifndef ORVAN_MAINT_OUTPUT_H
#define ORVAN_MAINT_OUTPUT_H

#include <string>
#include <vector>

#include "instrument.h"
#include "option_word.h"

namespace orvan_maint {

/** A heading and a line for each, columns as wide as what is in them. */
std::string instrument_table(const std::vector<Identity>& instruments);
/** An array of objects; a row that an instrument does not send is not in its object. */
std::string instruments_json(const std::vector<Identity>& instruments);

/** A line for each row. */
std::string identity_text(const Identity& identity);
std::string identity_json(const Identity& identity);

std::string options_table(const std::vector<OptionRow>& rows);
std::string options_json(const std::vector<OptionRow>& rows);

} // namespace orvan_maint

#endif
