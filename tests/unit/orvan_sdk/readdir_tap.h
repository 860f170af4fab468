/**
 * Folders that can be opened but not read.
 *
 * Linking it replaces readdir() of the whole program; calls pass through until it is set to fail.
 */
#ifndef ORVAN_TESTS_READDIR_TAP_H
#define ORVAN_TESTS_READDIR_TAP_H

namespace orvan_test {

/** From now on readdir() fails with this errno; with 0 it works again. */
void fail_readdir(int error);

} // namespace orvan_test

#endif
