/**
 * Makes file calls fail, and records the order of the locking calls.
 *
 * Linking it replaces flock(), ftell() and fsync() of the whole program; calls pass through.
 */
#ifndef ORVAN_TESTS_FILE_CALLS_TAP_H
#define ORVAN_TESTS_FILE_CALLS_TAP_H

#include <string>
#include <vector>

namespace orvan_test {

/** The call that fails: "flock", "ftell", or "longer ftell", which reports too large a size. */
extern std::string g_failing;
/** "flock <operation>" and "fsync <size of the file>", in order, while recording. */
extern std::vector<std::string> g_calls;
extern bool g_recording;

} // namespace orvan_test

#endif
