/**
 * Instruments and options as text and as JSON.
 */
#ifndef ORVAN_MAINT_OUTPUT_H
#define ORVAN_MAINT_OUTPUT_H

#include <string>
#include <vector>

#include "instrument.h"
#include "option_word.h"

namespace orvan_maint {

/** A heading and a line for each, with columns wide enough. */
std::string instrument_table(const std::vector<Identity>& instruments);
/** An array of objects, each with the rows that the instrument sends. */
std::string instruments_json(const std::vector<Identity>& instruments);

/** A line for each row. */
std::string identity_text(const Identity& identity);
std::string identity_json(const Identity& identity);

std::string options_table(const std::vector<OptionRow>& rows);
std::string options_json(const std::vector<OptionRow>& rows);

} // namespace orvan_maint

#endif
