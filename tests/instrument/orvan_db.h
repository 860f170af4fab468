/**
 * The channel records of a test's instrument, as orvan-db shows them beside the service.
 */
#ifndef ORVAN_TESTS_INSTRUMENT_ORVAN_DB_H
#define ORVAN_TESTS_INSTRUMENT_ORVAN_DB_H

#include <string>
#include <vector>

#include "instrument.h"

namespace orvan_test {

/** Runs orvan-db on the controller. */
Outcome orvan_db(const Instrument& instrument, const std::vector<std::string>& arguments);

/** An element's value as the table shows it; `tag` without "ODT_" and in any case. */
std::string element(const Instrument& instrument, int channel, const std::string& tag);

} // namespace orvan_test

#endif
