/**
 * Calls on files that fail, and the order of the locking calls.
 *
 * Linking it replaces flock(), ftell() and fsync() of the whole program; calls pass through.
 */
#ifndef ORVAN_TESTS_FILE_CALLS_TAP_H
#define ORVAN_TESTS_FILE_CALLS_TAP_H

#include <string>
#include <vector>

namespace orvan_test {

/** The one call that a test makes fail: "flock", "ftell", or "longer ftell", which reports too much. */
extern std::string g_failing;
/** "flock <operation>" and "fsync <size of the file>", in order, while recording. */
extern std::vector<std::string> g_calls;
extern bool g_recording;

} // namespace orvan_test

#endif
