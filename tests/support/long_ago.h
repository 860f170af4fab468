/** A file time before any test, which fits into 32 bits. */
#ifndef ORVAN_TESTS_SUPPORT_LONG_AGO_H
#define ORVAN_TESTS_SUPPORT_LONG_AGO_H

#include <chrono>
#include <filesystem>

namespace orvan_test {

inline const std::filesystem::file_time_type kLongAgo = std::chrono::file_clock::from_sys(
    std::chrono::sys_seconds{std::chrono::sys_days{std::chrono::year{2001} / 1 / 1}});

} // namespace orvan_test

#endif
