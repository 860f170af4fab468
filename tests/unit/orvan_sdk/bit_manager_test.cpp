// The test table: its rows and their results.
#include <string>
#include <vector>

#include <syslog.h>

#include "bit_table_bench.h"

using namespace orvan_test;

namespace {

TEST(BitValues, KindsStatesAndErrorCodesHaveFixedNumbers)
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

TEST_F(TestTable, RowsAreNumberedSeparatelyForEachKind)
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

TEST_F(TestTable, NewRowIsNotPerformedAndHasNoError)
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

TEST_F(TestTable, ReportOutsideTheTableIsRefusedAndUnchanged)
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

} // namespace
