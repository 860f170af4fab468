/**
 * Simulates memory exhaustion for code that allocates with std::nothrow.
 */
#ifndef ORVAN_TESTS_BOARD_NOTHROW_NEW_H
#define ORVAN_TESTS_BOARD_NOTHROW_NEW_H

namespace board_test {

/** While true, `new (std::nothrow)` of a single object returns null on every thread. */
void refuse_nothrow_new(bool refuse);

} // namespace board_test

#endif
