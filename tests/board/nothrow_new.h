/**
 * Memory that runs out, for code that asks for it with std::nothrow.
 */
#ifndef ORVAN_TESTS_BOARD_NOTHROW_NEW_H
#define ORVAN_TESTS_BOARD_NOTHROW_NEW_H

namespace board_test {

/** While true, `new (std::nothrow)` of a single object gives null on every thread. */
void refuse_nothrow_new(bool refuse);

} // namespace board_test

#endif
