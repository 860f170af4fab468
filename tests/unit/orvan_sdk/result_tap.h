/**
 * Intercepts the parser library's typed results: records which one a reply came from. The
 * bytes of a reply do not show it, and another parser library may write a boolean or a number its own way.
 */
#ifndef ORVAN_TESTS_RESULT_TAP_H
#define ORVAN_TESTS_RESULT_TAP_H

#include <string>
#include <vector>

namespace orvan_test {

/** One at a time. */
class ResultTap {
public:
    ResultTap();
    ~ResultTap();
    ResultTap(const ResultTap&) = delete;
    ResultTap& operator=(const ResultTap&) = delete;

    /** Calls in order: "SCPI_ResultBool 1", "SCPI_ResultUInt32Base 87 to the base 10". */
    std::vector<std::string> calls;

    /** The results fail: nothing is written. */
    bool refuses = false;
};

} // namespace orvan_test

#endif
