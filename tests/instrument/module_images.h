/**
 * Images to send to an instrument and its modules, and a check of what has arrived.
 */
#ifndef ORVAN_TESTS_INSTRUMENT_MODULE_IMAGES_H
#define ORVAN_TESTS_INSTRUMENT_MODULE_IMAGES_H

#include <filesystem>
#include <string>

#include "instrument.h"

namespace orvan_test {

/** Incompressible, and always the same. */
std::string image_of(size_t size);

/** A module's status after it has received an image of this kind this many times. */
std::string stored(const std::string& kind, const std::string& image, int times = 1);

std::string status(const Instrument& instrument, int module);

/** Of a file; empty when there is none. */
std::string contents(const std::filesystem::path& path);

} // namespace orvan_test

#endif
