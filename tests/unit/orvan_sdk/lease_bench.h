/**
 * Clients of the parser's lease, their waiting times, and the calls to the watchdog's timer.
 */
#ifndef ORVAN_TESTS_LEASE_BENCH_H
#define ORVAN_TESTS_LEASE_BENCH_H

#include <chrono>
#include <string>
#include <vector>

namespace orvan_test {

inline constexpr int kFirst = 1001; // not descriptors of this process: the lease only compares numbers
inline constexpr int kSecond = 1002;
inline constexpr int kThird = 1003;

// Long enough to see that a thread has entered.
inline constexpr auto kStaysOut = std::chrono::milliseconds(100);
inline constexpr auto kBound = std::chrono::seconds(10);

inline const std::vector<std::string> kFirstArming = {"create CLOCK_MONOTONIC SIGEV_THREAD",
                                                      "set 3.000000000"};

} // namespace orvan_test

#endif
