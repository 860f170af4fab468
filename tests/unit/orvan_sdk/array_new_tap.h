/**
 * Simulates memory exhaustion for code that allocates an array with std::nothrow.
 */
#ifndef ORVAN_TESTS_ARRAY_NEW_TAP_H
#define ORVAN_TESTS_ARRAY_NEW_TAP_H

#include <cstddef>

namespace orvan_test {

/** From now on `new (std::nothrow)` of an array of exactly this many bytes returns null; 0 ends that. */
void refuse_array_of(size_t bytes);

} // namespace orvan_test

#endif
