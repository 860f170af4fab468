/**
 * Distinguishes a call that spins forever from one that returns.
 */
#ifndef ORVAN_TESTS_SPINNING_CHILD_H
#define ORVAN_TESTS_SPINNING_CHILD_H

#include <functional>

namespace orvan_test {

/**
 * Runs the call in a child process. @return true when the child is still running after it has used 200 ms of
 * processor time, or has wanted it for 5 seconds on end, and is killed; false when it came back. Throws when
 * neither happens within 20 seconds, or when the child dies of something else.
 */
bool spins(const std::function<void()>& call);

} // namespace orvan_test

#endif
