#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "bit_bench.h"
#include "support/log_capture.h"

using namespace orvan_test;

namespace {

constexpr eBitType kKinds[] = {PBIT, CBIT, IBIT};
constexpr auto kBelow = static_cast<eBitType>(-1);
constexpr auto kAbove = static_cast<eBitType>(3);

/** The table without its thread. */
class TestTable : public ::testing::Test {
protected:
    /** A test that notes its name. */
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

TEST(BitValues, KindsStatesAndErrorCodesHaveTheirNumbers)
{
    EXPECT_EQ((std::vector<int>{PBIT, CBIT, IBIT, BIT_TYPE_COUNT}), (std::vector<int>{0, 1, 2, 3}));
    EXPECT_EQ((std::vector<int>{BIT_PASS, BIT_FAIL, BIT_IN_PROGRESS, BIT_NOT_PERFORMED}),
              (std::vector<int>{0, 1, 2, 3}));
    EXPECT_EQ((std::vector<int>{ERR_NONE, ERR_GENERAL, ERR_READ_FAIL, ERR_WRITE_FAIL, ERR_BAD_ID,
                                ERR_OVERHEATING, ERR_DATA, ERR_CRC32, ERR_CFG_MISMATCH, ERR_LAST}),
              (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(kCbitPeriod, 30);
}

TEST_F(TestTable, ThereIsOneObject)
{
    EXPECT_EQ(BITManager::getInstance(0), manager);
    EXPECT_EQ(BITManager::getInstance(30), manager);
}

TEST_F(TestTable, IsEmptyAtFirst)
{
    for (const eBitType type : kKinds) {
        EXPECT_EQ(manager->getTestsNumber(type), 0);
    }
}

// ---- registration

TEST_F(TestTable, RowsAreNumberedInEachKindByItself)
{
    EXPECT_EQ(manager->registerTest(PBIT, noting("one")), 0);
    EXPECT_EQ(manager->registerTest(PBIT, noting("two")), 1);
    EXPECT_EQ(manager->registerTest(CBIT, noting("one")), 0);
    EXPECT_EQ(manager->registerTest(IBIT, noting("one")), 0);
    EXPECT_EQ(manager->registerTest(PBIT, noting("three")), 2);
    EXPECT_EQ(manager->getTestsNumber(PBIT), 3);
    EXPECT_EQ(manager->getTestsNumber(CBIT), 1);
    EXPECT_EQ(manager->getTestsNumber(IBIT), 1);
}

TEST_F(TestTable, FreshRowIsNotPerformedAndWithoutError)
{
    manager->registerTest(CBIT, noting("fan"));
    const bitReport_t report = result(CBIT, 0);
    EXPECT_STREQ(report.testName, "fan");
    EXPECT_EQ(report.result, BIT_NOT_PERFORMED);
    EXPECT_EQ(report.errorCode, ERR_NONE);
}

TEST_F(TestTable, EleventhTestOfAKindIsRefusedAndTheFirstTenAreKept)
{
    static const char* const kNames[] = {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9"};
    const struct {
        eBitType type;
        const char* text;
    } kinds[] = {
        {PBIT, "Error: Maximum number of tests reached for PBIT!"},
        {CBIT, "Error: Maximum number of tests reached for CBIT!"},
        {IBIT, "Error: Maximum number of tests reached for IBIT!"},
    };
    for (const auto& [type, text] : kinds) {
        logs.clear();
        for (int index = 0; index < 10; ++index) {
            EXPECT_EQ(manager->registerTest(type, {kNames[index], {}, nullptr, false}), index);
        }
        EXPECT_TRUE(logs.lines().empty());
        EXPECT_EQ(manager->registerTest(type, noting("eleventh")), -1);
        EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_ERR, text}}));
        EXPECT_EQ(manager->getTestsNumber(type), 10);
        for (int index = 0; index < 10; ++index) {
            EXPECT_STREQ(result(type, index).testName, kNames[index]);
        }
        EXPECT_FALSE(manager->setTestResult(type, "eleventh", BIT_PASS, 0));
    }
}

TEST_F(TestTable, RegistrationOfABadKindIsRefused)
{
    logs.clear();
    EXPECT_EQ(manager->registerTest(kBelow, noting("x")), -1);
    EXPECT_EQ(manager->registerTest(kAbove, noting("x")), -1);
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>(2, {LOG_ERR, "Error: Invalid BIT type!"})));
}

// ---- results

TEST_F(TestTable, ResultAndErrorCodeAreSetByName)
{
    manager->registerTest(PBIT, noting("a"));
    manager->registerTest(PBIT, noting("b"));
    const std::string name = "b"; // equal text at another address
    EXPECT_TRUE(manager->setTestResult(PBIT, name.c_str(), BIT_FAIL, 0xC0));
    EXPECT_EQ(result(PBIT, 0).result, BIT_NOT_PERFORMED);
    EXPECT_EQ(result(PBIT, 1).result, BIT_FAIL);
    EXPECT_EQ(result(PBIT, 1).errorCode, 0xC0);
}

TEST_F(TestTable, NameThatIsNotRegisteredIsNotFoundAndNotLogged)
{
    manager->registerTest(PBIT, noting("MODULES test"));
    logs.clear();
    EXPECT_FALSE(manager->setTestResult(PBIT, "MODULES", BIT_PASS, 0));
    EXPECT_FALSE(manager->setTestResult(PBIT, "modules test", BIT_PASS, 0));
    EXPECT_FALSE(manager->setTestResult(PBIT, "", BIT_PASS, 0));
    EXPECT_FALSE(manager->setTestResult(PBIT, nullptr, BIT_PASS, 0));
    EXPECT_TRUE(logs.lines().empty());
    EXPECT_EQ(result(PBIT, 0).result, BIT_NOT_PERFORMED);
}

TEST_F(TestTable, RightNameOfTheWrongKindIsNotFound)
{
    manager->registerTest(CBIT, noting("TEMP test"));
    EXPECT_FALSE(manager->setTestResult(PBIT, "TEMP test", BIT_FAIL, 1));
    EXPECT_FALSE(manager->setTestResult(IBIT, "TEMP test", BIT_FAIL, 1));
    EXPECT_FALSE(manager->setTestResult(kBelow, "TEMP test", BIT_FAIL, 1));
    EXPECT_FALSE(manager->setTestResult(kAbove, "TEMP test", BIT_FAIL, 1));
    EXPECT_EQ(result(CBIT, 0).result, BIT_NOT_PERFORMED);
}

TEST_F(TestTable, SameNameOfTwoKindsIsTwoRecords)
{
    manager->registerTest(PBIT, noting("MODULES test"));
    manager->registerTest(CBIT, noting("MODULES test"));
    EXPECT_TRUE(manager->setTestResult(CBIT, "MODULES test", BIT_FAIL, 12));
    EXPECT_TRUE(manager->setTestResult(PBIT, "MODULES test", BIT_PASS, 0));
    EXPECT_EQ(result(PBIT, 0).result, BIT_PASS);
    EXPECT_EQ(result(CBIT, 0).result, BIT_FAIL);
    EXPECT_EQ(result(CBIT, 0).errorCode, 12);
}

TEST_F(TestTable, FirstOfTwoRowsWithTheSameNameIsUsed)
{
    manager->registerTest(IBIT, noting("twin", false));
    manager->registerTest(IBIT, noting("twin", false));
    EXPECT_TRUE(manager->setTestResult(IBIT, "twin", BIT_PASS, 4));
    manager->setRunningMode(IBIT, "twin", true);
    EXPECT_EQ(result(IBIT, 0).result, BIT_PASS);
    EXPECT_EQ(result(IBIT, 1).result, BIT_NOT_PERFORMED);
    manager->runIBITs();
    EXPECT_EQ(ran.size(), 1u);
}

TEST_F(TestTable, ResultsMayBeSetInAnyOrder)
{
    manager->registerTest(PBIT, noting("a"));
    for (const int status : {1, 0, 3, 2, 77, -5}) {
        EXPECT_TRUE(manager->setTestResult(PBIT, "a", status, -status));
        EXPECT_EQ(result(PBIT, 0).result, status);
        EXPECT_EQ(result(PBIT, 0).errorCode, -status);
    }
}

TEST_F(TestTable, ReportOutsideTheTableIsRefusedAndLeftAlone)
{
    manager->registerTest(PBIT, noting("a"));
    bitReport_t report = {"before", 7, 8};
    EXPECT_FALSE(manager->getTestResult(PBIT, 1, report));
    EXPECT_FALSE(manager->getTestResult(PBIT, -1, report));
    EXPECT_FALSE(manager->getTestResult(CBIT, 0, report));
    EXPECT_FALSE(manager->getTestResult(kBelow, 0, report));
    EXPECT_FALSE(manager->getTestResult(kAbove, 0, report));
    EXPECT_STREQ(report.testName, "before");
    EXPECT_EQ(report.result, 7);
    EXPECT_EQ(report.errorCode, 8);
}

TEST_F(TestTable, BadKindHasNoTests)
{
    EXPECT_EQ(manager->getTestsNumber(kBelow), 0);
    EXPECT_EQ(manager->getTestsNumber(kAbove), 0);
}

TEST_F(TestTable, KindsHaveTheirNames)
{
    EXPECT_STREQ(manager->getBitTypeName(PBIT), "PBIT");
    EXPECT_STREQ(manager->getBitTypeName(CBIT), "CBIT");
    EXPECT_STREQ(manager->getBitTypeName(IBIT), "IBIT");
    EXPECT_STREQ(manager->getBitTypeName(kBelow), "Unknown");
    EXPECT_STREQ(manager->getBitTypeName(kAbove), "Unknown");
}

TEST_F(TestTable, RecordReportsTheNameOfItsTest)
{
    manager->registerTest(CBIT, noting("a"));
    manager->registerTest(CBIT, noting("b"));
    const auto name_of = [this](int type, int index) {
        const TestRecord_t record = {type, index, 0, 0, nullptr};
        return std::string(manager->getTestName(&record));
    };
    EXPECT_EQ(name_of(CBIT, 0), "a");
    EXPECT_EQ(name_of(CBIT, 1), "b");
    EXPECT_EQ(name_of(CBIT, 2), "Unknown");
    EXPECT_EQ(name_of(CBIT, -1), "Unknown");
    EXPECT_EQ(name_of(PBIT, 0), "Unknown");
    EXPECT_EQ(name_of(-1, 0), "Unknown");
    EXPECT_EQ(name_of(3, 0), "Unknown");
    EXPECT_STREQ(manager->getTestName(nullptr), "Unknown");
}

// ---- running

TEST_F(TestTable, PowerUpTestsRunInOrderOnTheCallersThread)
{
    std::vector<std::thread::id> threads;
    for (const char* name : {"a", "b"}) {
        const auto note = [&, name](void*) {
            ran.emplace_back(name);
            threads.push_back(std::this_thread::get_id());
            return -1; // means nothing
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

TEST_F(TestTable, FunctionGetsItsRecordAndInItTheObject)
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
        // The table itself and no copy: the next result shows in it.
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

TEST_F(TestTable, RowThatIsNotRunIsSkippedWithinTheStep)
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

TEST_F(TestTable, TestThatJoinsHasItsTurn)
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

TEST_F(TestTable, ExceptionOfATestReachesTheCallerAndLeavesTheTableInService)
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
        EXPECT_TRUE(manager->setTestResult(type, "broken", BIT_FAIL, 1)); // no lock is still held
    }
    take_steps(1);
    EXPECT_EQ(ran, std::vector<std::string>{"after it"}); // the round continued
}

TEST_F(TestTable, RowThatJoinsDuringARunIsLeftForTheNextOne)
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

TEST_F(TestTable, RowWithoutANameIsFoundByNoneAndHidesNoOther)
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
