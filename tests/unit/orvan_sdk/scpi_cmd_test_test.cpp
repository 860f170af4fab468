#include <memory>

#include <gmock/gmock.h>

#include "many_modules_bench.h"
#include "orvan_sdk/bit/bit_manager.h"
#include "orvan_sdk/scpi-parser/scpi_cmd_orvanx.h"
#include "support/rendezvous.h"

using namespace orvan_test;
using testing::IsEmpty;

namespace {

class TestHandlers : public ManyModulesBench {
protected:
    static std::string no_answer_of(int index)
    {
        return "OrvanX_runRPIbit: module " + std::to_string(index) + ": -ERR Unable to connect\n";
    }

    /** Adds a test with a result; the name is kept for as long as the process lives. */
    void add_test(eBitType type, const std::string& name, int result, int error_code)
    {
        static std::vector<std::unique_ptr<std::string>> names;
        names.push_back(std::make_unique<std::string>(name));
        const char* const kept = names.back()->c_str();
        manager->registerTest(type, {kept, {}, nullptr, false});
        manager->setTestResult(type, kept, result, error_code);
    }

    BITManager* manager = BITManager::getInstance(0);
};

// ---- *TST

TEST_F(TestHandlers, TestQueriesEveryModuleAndRunsTheOnRequestTests)
{
    int runs = 0;
    manager->registerTest(IBIT, {"own", [&](void*) { return ++runs; }, nullptr, true});
    EXPECT_EQ(ask("*TST"), "+OK\r\n");
    for (const ScriptedModule& each : modules) {
        EXPECT_TRUE(each.wait_finished(1));
        EXPECT_EQ(each.requests(), Lines{"*TST\r\n"});
    }
    EXPECT_EQ(runs, 1);
    EXPECT_THAT(take_error_lines(), IsEmpty());
    EXPECT_THAT(device.calls, IsEmpty());
}

TEST_F(TestHandlers, TestRunsInModulesAndControllerAtTheSameTime)
{
    Rendezvous all(5);
    for (ScriptedModule& each : modules) {
        each.always(ModuleAnswer::reply_after([&] { all.meet(); }, "+OK\r\n"));
    }
    manager->registerTest(IBIT, {"own", [&](void*) { return all.meet() ? 0 : 1; }, nullptr, true});
    EXPECT_EQ(ask("*TST"), "+OK\r\n");
    EXPECT_TRUE(all.everybody_met());
}

TEST_F(TestHandlers, TestIsASuccessWithADeadModuleWhichIsLogged)
{
    kill_module(2);
    EXPECT_EQ(ask("*TST"), "+OK\r\n");
    EXPECT_EQ(take_error_lines(), Lines{no_answer_of(1)});
    EXPECT_THAT(take_errors(), IsEmpty());
    for (int alive : {0, 2, 3}) {
        EXPECT_EQ(modules[alive].requests(), Lines{"*TST\r\n"});
    }
}

TEST_F(TestHandlers, TestLogsEveryDeadModuleInOrder)
{
    for (int channel = 1; channel <= 4; ++channel) {
        kill_module(channel);
    }
    EXPECT_EQ(ask("*TST"), "+OK\r\n");
    EXPECT_EQ(take_error_lines(),
              (Lines{no_answer_of(0), no_answer_of(1), no_answer_of(2), no_answer_of(3)}));
}

TEST_F(TestHandlers, TestLogsTheTextOfARefusal)
{
    modules[3].always(ModuleAnswer::reply("-ERR -300, \"Device error\"\r\n"));
    EXPECT_EQ(ask("*TST"), "+OK\r\n");
    EXPECT_EQ(take_error_lines(), Lines{"OrvanX_runRPIbit: module 3: -ERR -300, \"Device error\"\r\n\n"});
}

TEST_F(TestHandlers, TestQueriesOnlyInstalledModules)
{
    orvanx->setNumberofChannels(2);
    EXPECT_EQ(ask("*TST"), "+OK\r\n");
    orvanx->setNumberofChannels(4); // as mapped
    EXPECT_EQ(modules[0].connections() + modules[1].connections(), 2u);
    EXPECT_EQ(connections(), 2u);
}

TEST_F(TestHandlers, TestWithoutDeviceOrServiceIsASuccessThatDoesNothing)
{
    int runs = 0;
    manager->registerTest(IBIT, {"own", [&](void*) { return ++runs; }, nullptr, true});
    put_device(nullptr);
    EXPECT_EQ(ask("*TST"), "+OK\r\n");
    put_device(&device);
    take_service_away();
    EXPECT_EQ(ask("*TST"), "+OK\r\n");
    EXPECT_EQ(runs, 0);
    EXPECT_EQ(connections(), 0u);
}

TEST_F(TestHandlers, TestWithoutAUserRecordIsNotInitialized)
{
    EXPECT_EQ(call_without_user_record(OrvanX_runRPIbit), SCPI_RES_ERR);
    EXPECT_EQ(take_errors(), Lines{"-310 Target is not initialized"});
    EXPECT_EQ(take_error_lines(), Lines{"OrvanX_runRPIbit: Target is not initialized\n"});
    EXPECT_EQ(connections(), 0u);
}

// ---- *TST?

TEST_F(TestHandlers, ReportOfACleanInstrumentCountsNoFailures)
{
    EXPECT_EQ(ask("*TST?"), "0 Failures;+OK\r\n");
    EXPECT_EQ(connections(), 0u);
}

TEST_F(TestHandlers, ReportNamesOnlyTestsThatFailed)
{
    add_test(PBIT, "passed", BIT_PASS, 0);
    add_test(PBIT, "running", BIT_IN_PROGRESS, 1);
    add_test(CBIT, "not run", BIT_NOT_PERFORMED, 2);
    add_test(IBIT, "odd", 4, 3);
    EXPECT_EQ(ask("*TST?"), "0 Failures;+OK\r\n");
    add_test(PBIT, "MODULES", BIT_FAIL, 5);
    EXPECT_EQ(ask("*TST?"), "PBIT,MODULES,Fail,5;1 Failures;+OK\r\n");
}

TEST_F(TestHandlers, ReportIsInTheOrderOfKindsAndRegistration)
{
    add_test(IBIT, "i", BIT_FAIL, -1);
    add_test(CBIT, "c2", BIT_FAIL, 0xC0);
    add_test(CBIT, "c1", BIT_FAIL, 0);
    add_test(PBIT, "p", BIT_FAIL, 1);
    EXPECT_EQ(ask("*TST?"),
              "PBIT,p,Fail,1;CBIT,c2,Fail,192;CBIT,c1,Fail,0;IBIT,i,Fail,-1;4 Failures;+OK\r\n");
}

TEST_F(TestHandlers, ReportHoldsTenFailuresOfAKind)
{
    std::string expected;
    for (int number = 0; number < 10; ++number) {
        const std::string name = "test " + std::to_string(number);
        add_test(CBIT, name, BIT_FAIL, number);
        expected += "CBIT," + name + ",Fail," + std::to_string(number) + ";";
    }
    EXPECT_EQ(ask("*TST?"), expected + "10 Failures;+OK\r\n");
}

/** Name of a test whose line in the report has this many bytes; the number makes the name unique. */
std::string name_for_line(size_t length, size_t number)
{
    return std::to_string(number) + std::string(length - 1 - std::string("PBIT,,Fail,0;").size(), 'n');
}

class LongReport : public TestHandlers {
protected:
    /** Ten failures at power-up that fill `length` bytes. @return their lines */
    std::string fill(size_t length)
    {
        std::string lines;
        for (size_t number = 0; number < 10; ++number) {
            const size_t line = length / 10 + (number < length % 10 ? 1 : 0);
            add_test(PBIT, name_for_line(line, number), BIT_FAIL, 0);
            lines += "PBIT," + name_for_line(line, number) + ",Fail,0;";
        }
        EXPECT_EQ(lines.size(), length);
        return lines;
    }
};

TEST_F(LongReport, Of1023BytesEndsInItsTail)
{
    const std::string tail = "10 Failures";
    const std::string lines = fill(1023 - tail.size());
    EXPECT_EQ(ask("*TST?"), lines + tail + ";+OK\r\n");
}

TEST_F(LongReport, WhoseTailReaches1024LosesTheTail)
{
    const std::string lines = fill(1024 - std::string("10 Failures").size());
    EXPECT_EQ(ask("*TST?"), lines + "+OK\r\n"); // the flush takes back the last ";" and adds its own
}

TEST_F(LongReport, WhoseLinesFill1023HoldsThemAll)
{
    const std::string lines = fill(1023);
    EXPECT_EQ(ask("*TST?"), lines + "+OK\r\n"); // the flush takes back the last ";" and adds its own
}

TEST_F(LongReport, WhoseLineReaches1024OverflowsInTheRemainingRoom)
{
    const std::string lines = fill(1024);
    const size_t kept = lines.size() - lines.size() / 10;
    EXPECT_EQ(ask("*TST?"), lines.substr(0, kept) + ";Buffer_Overflow;+OK\r\n");
}

TEST_F(LongReport, MarksTheOverflowOfEachKindAtItsFirstFailure)
{
    const std::string lines = fill(950);
    for (const eBitType type : {CBIT, IBIT}) {
        for (size_t number = 0; number < 3; ++number) {
            add_test(type, name_for_line(80, number), BIT_FAIL, 0);
        }
    }
    EXPECT_EQ(ask("*TST?"), lines + ";Buffer_Overflow;Buffer_Overflow;+OK\r\n");
}

TEST_F(LongReport, CutsTheOverflowMarkAtItsLastByte)
{
    const std::string lines = fill(1018);
    add_test(CBIT, "late", BIT_FAIL, 0);
    add_test(IBIT, "later", BIT_FAIL, 0);
    EXPECT_EQ(ask("*TST?"), lines + ";Buff;+OK\r\n");
}

TEST_F(LongReport, CutsALineAt127Bytes)
{
    add_test(PBIT, std::string(200, 'n'), BIT_FAIL, 9);
    EXPECT_EQ(ask("*TST?"), "PBIT," + std::string(122, 'n') + "1 Failures;+OK\r\n");
}

TEST_F(TestHandlers, ReportThatCannotBeStoredIsAFailure)
{
    EXPECT_EQ(call_without_user_record(OrvanX_bitRPResults), SCPI_RES_ERR);
    EXPECT_EQ(take_errors(), Lines{"-223 copy data out failed"});
    EXPECT_EQ(take_error_lines(), Lines{"OrvanX_bitRPResults: Failed to copy output data\n"});
}

// ---- a module's own report

TEST_F(TestHandlers, ModuleReportComesFromTheRequestedModule)
{
    modules[2].always(ModuleAnswer::reply("PBIT,RF,Fail,7;1 Failures;+OK\r\n"));
    EXPECT_EQ(ask(":SYST:MOD:TEST? 3"), "PBIT,RF,Fail,7;1 Failures;+OK\r\n");
    EXPECT_EQ(modules[2].requests(), Lines{"*TST?\r\n"});
    EXPECT_EQ(connections(), 1u);
    EXPECT_EQ(orvanx->getSelectedChannel(), 1);
}

TEST_F(TestHandlers, ModuleReportIsCutAtTheLastSuccessWordOnly)
{
    const struct {
        const char* from_module;
        const char* to_client;
    } rows[] = {
        {"a;+OKb;+OK\r\n", "a;+OKb;+OK\r\n"},
        {"a;+OK;+OK\r\n", "a;+OK;+OK\r\n"},
        {"0 Failures", "0 Failures;+OK\r\n"},
        {"+OK\r\n", "+OK\r\n;+OK\r\n"},
    };
    for (const auto& row : rows) {
        modules[0].always(ModuleAnswer::reply(row.from_module));
        EXPECT_EQ(ask(":SYST:MOD:TEST? 1"), row.to_client);
    }
}

TEST_F(TestHandlers, ModuleReportThatIsEmptyIsAFailure)
{
    modules[0].always(ModuleAnswer::reply(";+OK\r\n"));
    EXPECT_EQ(ask(":SYST:MOD:TEST? 1"), kTooMuchData);
    EXPECT_EQ(take_errors(), Lines{"-223 copy data out failed"});
    EXPECT_EQ(take_error_lines(), Lines{"OrvanX_getModuleBitResult: Failed to copy output data\n"});
}

TEST_F(TestHandlers, ModuleReportNeedsItsNumber)
{
    EXPECT_EQ(ask(":SYST:MOD:TEST?"), kMissingParameter);
    EXPECT_EQ(take_errors(), Lines{"-109 Param 0"});
    EXPECT_EQ(take_error_lines(),
              Lines{"OrvanX_getModuleBitResult: Failed to retrieve a mandatory parameter 0\n"});
    EXPECT_EQ(connections(), 0u);
}

TEST_F(TestHandlers, ModuleReportOfAModuleThatIsNotInstalledIsRefused)
{
    EXPECT_EQ(ask(":SYST:MOD:TEST? 5"), "-ERR -400, \"Query error\";+OK\r\n");
    EXPECT_EQ(take_errors(), Lines{"-400 Module number 5 not supported"});
    EXPECT_EQ(take_error_lines(), Lines{"OrvanX_getModuleBitResult: illegal module 5 requested\n"});
    EXPECT_EQ(ask(":SYST:MOD:TEST? 4294967295"), "-ERR -400, \"Query error\";+OK\r\n");
    EXPECT_EQ(take_errors(), Lines{"-400 Module number -1 not supported"});
    EXPECT_EQ(take_error_lines(), Lines{"OrvanX_getModuleBitResult: illegal module -1 requested\n"});
    EXPECT_EQ(connections(), 0u);
}

TEST_F(TestHandlers, ModuleReportOfModule0IsOfAnUnreachableModule)
{
    EXPECT_EQ(ask(":SYST:MOD:TEST? 0"), kCommunicationError);
    EXPECT_EQ(take_error_lines(), Lines{"OrvanX_getModuleBitResult: -ERR Unable to connect\n"});
    EXPECT_EQ(connections(), 0u);
}

TEST_F(TestHandlers, ModuleReportOfADeadModuleIsACommunicationError)
{
    kill_module(4);
    EXPECT_EQ(ask(":SYST:MOD:TEST? 4"), kCommunicationError);
    EXPECT_EQ(take_errors(), Lines{"-360 Module communication error"});
    EXPECT_EQ(take_error_lines(), Lines{"OrvanX_getModuleBitResult: -ERR Unable to connect\n"});
}

TEST_F(TestHandlers, ModuleReportThatRefusesIsACommunicationError)
{
    modules[1].always(ModuleAnswer::reply("x;-ERR -113, \"Undefined header\";+OK\r\n"));
    EXPECT_EQ(ask(":SYST:MOD:TEST? 2"), kCommunicationError);
    EXPECT_EQ(take_errors(), Lines{"-360 Module communication error"});
    EXPECT_EQ(take_error_lines(),
              Lines{"OrvanX_getModuleBitResult: x;-ERR -113, \"Undefined header\";+OK\r\n\n"});
}

TEST_F(TestHandlers, ModuleReportWithoutAServiceIsASuccessWithoutAReply)
{
    take_service_away();
    EXPECT_EQ(ask(":SYST:MOD:TEST? 9"), "+OK\r\n");
    EXPECT_EQ(connections(), 0u);
}

} // namespace
