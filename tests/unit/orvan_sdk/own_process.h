/**
 * Cases that need a separate process.
 *
 * Under CTest each case has one. The suite as one process also passes: what the library keeps per process
 * is put back after each case (shared_process.cpp). What it makes only once, at its first use, as a thread or
 * a timer, cannot be; a case about that runs in a new process.
 */
#ifndef ORVAN_TESTS_OWN_PROCESS_H
#define ORVAN_TESTS_OWN_PROCESS_H

#include <gtest/gtest.h>

namespace orvan_test {

/**
 * For SetUp. Where the process has more than this case to run, runs the case in a new one; here it is skipped
 * when it passed there, and fails with all that was printed when it did not. Otherwise does nothing.
 */
void run_in_own_process();

/** For cases that need no other fixture. */
class OwnProcess : public testing::Test {
protected:
    void SetUp() override { run_in_own_process(); }
};

} // namespace orvan_test

#endif
