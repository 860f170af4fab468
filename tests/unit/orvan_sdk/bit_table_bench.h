/**
 * The test table with tests that record their runs.
 */
#ifndef ORVAN_TESTS_BIT_TABLE_BENCH_H
#define ORVAN_TESTS_BIT_TABLE_BENCH_H

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "bit_bench.h"
#include "support/log_capture.h"

namespace orvan_test {

inline constexpr eBitType kKinds[] = {PBIT, CBIT, IBIT};
inline constexpr auto kBelow = static_cast<eBitType>(-1);
inline constexpr auto kAbove = static_cast<eBitType>(3);

/** The table without its thread. */
class TestTable : public ::testing::Test {
protected:
    /** A test that records its name. */
    Test_t noting(const char* name, bool autoMode = true)
    {
        const auto note = [this, name](void*) {
            ran.emplace_back(name);
            return 0;
        };
        return {name, note, nullptr, autoMode};
    }

    bitReport_t result(eBitType type, int index)
    {
        bitReport_t report = {"", -1, -1};
        EXPECT_TRUE(manager->getTestResult(type, index, report));
        return report;
    }

    void take_steps(int count)
    {
        for (int step = 0; step < count; ++step) {
            take_cbit_step(*manager);
        }
    }

    LogCapture logs;
    BITManager* const manager = BITManager::getInstance(0);
    std::vector<std::string> ran;
};

} // namespace orvan_test

#endif
