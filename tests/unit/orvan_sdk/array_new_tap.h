/**
 * Memory that runs out, for code that asks for an array with std::nothrow.
 */
#ifndef ORVAN_TESTS_ARRAY_NEW_TAP_H
#define ORVAN_TESTS_ARRAY_NEW_TAP_H

#include <cstddef>

namespace orvan_test {

/** From now on `new (std::nothrow)` of an array of exactly this many bytes gives null; with 0 none does. */
void refuse_array_of(size_t bytes);

} // namespace orvan_test

#endif
