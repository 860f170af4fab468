// The test table: running its tests, also from several threads.
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bit_table_bench.h"

using namespace orvan_test;

namespace {

// ---- running

TEST_F(TestTable, PowerUpTestsRunInOrderOnTheCallersThread)
{
    std::vector<std::thread::id> threads;
    for (const char* name : {"a", "b"}) {
        const auto note = [&, name](void*) {
            ran.emplace_back(name);
            threads.push_back(std::this_thread::get_id());
            return -1; // has no meaning
        };
        manager->registerTest(PBIT, {name, note, nullptr, true});
    }
    manager->registerTest(CBIT, noting("of another kind"));
    manager->registerTest(IBIT, noting("of another kind"));
    manager->runPBITs();
    EXPECT_EQ(ran, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(threads, std::vector<std::thread::id>(2, std::this_thread::get_id()));
    EXPECT_EQ(result(PBIT, 0).result, BIT_NOT_PERFORMED);
}

TEST_F(TestTable, TestsOnRequestRunAlone)
{
    manager->registerTest(PBIT, noting("of another kind"));
    manager->registerTest(CBIT, noting("of another kind"));
    manager->registerTest(IBIT, noting("a"));
    manager->registerTest(IBIT, noting("b"));
    manager->runIBITs();
    EXPECT_EQ(ran, (std::vector<std::string>{"a", "b"}));
}

TEST_F(TestTable, OnlyRowsInAutoModeWithAFunctionAreRun)
{
    for (const eBitType type : kKinds) {
        manager->registerTest(type, {"no function", {}, nullptr, true});
        manager->registerTest(type, noting("by hand", false));
        manager->registerTest(type, {"neither", {}, nullptr, false});
    }
    manager->runPBITs();
    manager->runIBITs();
    take_steps(4);
    EXPECT_TRUE(ran.empty());
}

TEST_F(TestTable, EmptyKindsRunNothing)
{
    manager->runPBITs();
    manager->runIBITs();
    take_steps(2);
    EXPECT_TRUE(ran.empty());
}

TEST_F(TestTable, FunctionGetsItsRecordWithTheObject)
{
    int object = 0;
    for (const eBitType type : kKinds) {
        const TestRecord_t* got = nullptr;
        const auto keep = [&got](void* record) {
            got = static_cast<TestRecord_t*>(record);
            return 0;
        };
        manager->registerTest(type, {"first", {}, nullptr, false});
        manager->registerTest(type, {"second", keep, &object, true});
        type == PBIT ? manager->runPBITs() : type == IBIT ? manager->runIBITs() : take_steps(1);
        ASSERT_NE(got, nullptr);
        EXPECT_EQ(got->testType, type);
        EXPECT_EQ(got->testIndex, 1);
        EXPECT_EQ(got->status, BIT_NOT_PERFORMED);
        EXPECT_EQ(got->errorCode, ERR_NONE);
        EXPECT_EQ(got->object, &object);
        EXPECT_STREQ(manager->getTestName(got), "second");
        // The table itself, not a copy: the next result shows in it.
        manager->setTestResult(type, "second", BIT_PASS, 5);
        EXPECT_EQ(got->status, BIT_PASS);
        EXPECT_EQ(got->errorCode, 5);
        manager->setRunningMode(type, "second", false);
    }
}

TEST_F(TestTable, FunctionMayCallBack)
{
    for (const eBitType type : kKinds) {
        const auto report = [this, type](void* record) {
            const char* const name = manager->getTestName(static_cast<TestRecord_t*>(record));
            return manager->setTestResult(type, name, BIT_PASS, 3) ? 0 : -1;
        };
        manager->registerTest(type, {"self", report, nullptr, true});
    }
    manager->runPBITs();
    manager->runIBITs();
    take_steps(1);
    for (const eBitType type : kKinds) {
        EXPECT_EQ(result(type, 0).result, BIT_PASS);
        EXPECT_EQ(result(type, 0).errorCode, 3);
    }
}

TEST_F(TestTable, RunningModeIsSetByNameAndKind)
{
    manager->registerTest(PBIT, noting("a", false));
    manager->registerTest(IBIT, noting("a", false));
    manager->setRunningMode(PBIT, "a", true);
    manager->setRunningMode(PBIT, "unknown", true);
    manager->setRunningMode(kBelow, "a", true);
    manager->setRunningMode(kAbove, "a", true);
    manager->runPBITs();
    manager->runIBITs();
    EXPECT_EQ(ran.size(), 1u);
    manager->setRunningMode(PBIT, "a", false);
    manager->runPBITs();
    EXPECT_EQ(ran.size(), 1u);
}

// ---- the round of the continuous tests

TEST_F(TestTable, ConsecutiveStepsAlternateBetweenTwoTests)
{
    manager->registerTest(CBIT, noting("a"));
    manager->registerTest(CBIT, noting("b"));
    take_steps(5);
    EXPECT_EQ(ran, (std::vector<std::string>{"a", "b", "a", "b", "a"}));
}

TEST_F(TestTable, RowNotToBeRunIsSkippedWithinTheStep)
{
    manager->registerTest(CBIT, noting("by hand", false));
    manager->registerTest(CBIT, noting("a"));
    manager->registerTest(CBIT, {"no function", {}, nullptr, true});
    manager->registerTest(CBIT, noting("b"));
    take_steps(1);
    EXPECT_EQ(ran, (std::vector<std::string>{"a"}));
    take_steps(1);
    EXPECT_EQ(ran, (std::vector<std::string>{"a", "b"}));
    take_steps(1);
    EXPECT_EQ(ran, (std::vector<std::string>{"a", "b", "a"}));
}

TEST_F(TestTable, StepThatFindsNothingTriesEachRowOnceAndStaysInPlace)
{
    for (const char* name : {"a", "b", "c"}) {
        manager->registerTest(CBIT, noting(name, name == std::string("b")));
    }
    take_steps(1); // the next one begins at "c"
    manager->setRunningMode(CBIT, "b", false);
    take_steps(1);
    EXPECT_EQ(ran, (std::vector<std::string>{"b"}));
    manager->setRunningMode(CBIT, "a", true);
    manager->setRunningMode(CBIT, "c", true);
    take_steps(1);
    EXPECT_EQ(ran, (std::vector<std::string>{"b", "c"}));
}

TEST_F(TestTable, AddedTestGetsItsTurn)
{
    manager->registerTest(CBIT, noting("a"));
    take_steps(2);
    manager->registerTest(CBIT, noting("b"));
    take_steps(3);
    EXPECT_EQ(ran, (std::vector<std::string>{"a", "a", "a", "b", "a"}));
}

// ---- threads

TEST_F(TestTable, ManyThreadsRegisterSetAndReadAtOnce)
{
    static const char* const kNames[] = {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9"};
    std::vector<std::thread> owners;
    for (const char* const name : kNames) {
        owners.emplace_back([this, name] {
            const auto quick = [](void*) { return 0; };
            const int index = manager->registerTest(CBIT, {name, quick, nullptr, false});
            for (int round = 0; round < 200; ++round) {
                EXPECT_TRUE(manager->setTestResult(CBIT, name, round % 4, index));
                manager->setRunningMode(CBIT, name, round % 2 == 0);
                take_cbit_step(*manager);
                bitReport_t report = {};
                EXPECT_TRUE(manager->getTestResult(CBIT, index, report));
                EXPECT_STREQ(report.testName, name);
                EXPECT_EQ(report.errorCode, index);
            }
        });
    }
    for (std::thread& owner : owners) {
        owner.join();
    }
    EXPECT_EQ(manager->getTestsNumber(CBIT), 10);
}

TEST_F(TestTable, ExceptionOfATestReachesTheCallerAndLeavesTheTableUsable)
{
    const auto fail = [](void*) -> int { throw std::runtime_error("broken"); };
    for (const eBitType type : kKinds) {
        manager->registerTest(type, {"broken", fail, nullptr, true});
        manager->registerTest(type, noting("after it"));
    }
    EXPECT_THROW(manager->runPBITs(), std::runtime_error);
    EXPECT_THROW(manager->runIBITs(), std::runtime_error);
    EXPECT_THROW(take_cbit_step(*manager), std::runtime_error);
    EXPECT_TRUE(ran.empty());
    for (const eBitType type : kKinds) {
        EXPECT_TRUE(manager->setTestResult(type, "broken", BIT_FAIL, 1)); // no lock is held
    }
    take_steps(1);
    EXPECT_EQ(ran, std::vector<std::string>{"after it"}); // the round continued
}

TEST_F(TestTable, RowAddedDuringARunWaitsForTheNextRun)
{
    for (const eBitType type : {PBIT, IBIT}) {
        ran.clear();
        const auto run = [this, type] { type == PBIT ? manager->runPBITs() : manager->runIBITs(); };
        const auto add = [this, type](void*) {
            ran.emplace_back("first");
            return manager->registerTest(type, noting("late"));
        };
        manager->registerTest(type, {"first", add, nullptr, true});
        run();
        EXPECT_EQ(ran, std::vector<std::string>{"first"});
        manager->setRunningMode(type, "first", false);
        run();
        EXPECT_EQ(ran, (std::vector<std::string>{"first", "late"}));
    }
}

TEST_F(TestTable, ModeSetDuringARunAppliesToTheRemainingRows)
{
    for (const eBitType type : {PBIT, IBIT}) {
        ran.clear();
        const auto swap = [this, type](void*) {
            manager->setRunningMode(type, "b", false);
            manager->setRunningMode(type, "c", true);
            return 0;
        };
        manager->registerTest(type, {"a", swap, nullptr, true});
        manager->registerTest(type, noting("b"));
        manager->registerTest(type, noting("c", false));
        type == PBIT ? manager->runPBITs() : manager->runIBITs();
        EXPECT_EQ(ran, std::vector<std::string>{"c"});
    }
}

TEST_F(TestTable, RowWithoutANameIsNeverFoundAndHidesNoOther)
{
    EXPECT_EQ(manager->registerTest(CBIT, {}), 0);
    manager->registerTest(CBIT, noting("fan", false));
    EXPECT_FALSE(manager->setTestResult(CBIT, "", BIT_FAIL, 1));
    EXPECT_TRUE(manager->setTestResult(CBIT, "fan", BIT_FAIL, 1));
    manager->setRunningMode(CBIT, "fan", true);
    take_steps(1);
    EXPECT_EQ(ran, std::vector<std::string>{"fan"});
    EXPECT_EQ(result(CBIT, 0).result, BIT_NOT_PERFORMED);
}

} // namespace
