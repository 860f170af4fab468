#include <stdexcept>

#include "temperature_bench.h"

using namespace orvan_test;

namespace {

const std::string kQuery = ":SYST:TEMP?\r\n";
const LogLine kRefused = {LOG_WARNING, "Failed to get temperature: -ERR -200, \"Execution error\"\r\n\n"};

// ---- a poll

TEST_F(TemperatureMonitor, EveryChannelsOwnModuleIsPolledOnce)
{
    poll();
    for (int ch = 1; ch <= kMaxChannels; ++ch) {
        EXPECT_EQ(module_of(ch).requests(), std::vector<std::string>{kQuery}) << ch;
    }
    EXPECT_EQ(own_server.connections(), 0u);
}

TEST_F(TemperatureMonitor, TheSelectedChannelIsPolledThroughTheInstrumentsOwnServer)
{
    orvanx->setSelectedChannel(3);
    own_server.always(ModuleAnswer::reply("51.25;+OK\r\n"));
    poll();
    EXPECT_EQ(own_server.requests(), std::vector<std::string>{kQuery});
    EXPECT_EQ(module_of(3).connections(), 0u);
    EXPECT_EQ(module_of(2).connections(), 1u);
    EXPECT_EQ(text(3, ODT_TEMP), "51.25");
    EXPECT_EQ(greatest(), 51.25);
    EXPECT_TRUE(orvanx->m_isLive[2]);
}

TEST_F(TemperatureMonitor, OnlyTheNamedChannelsArePolled)
{
    answers(3, "99");
    poll(2);
    EXPECT_EQ(module_of(2).connections(), 1u);
    EXPECT_EQ(module_of(3).connections(), 0u);
    EXPECT_EQ(greatest(), 30.0);
    EXPECT_EQ(live(), (std::array{true, true, false, false}));
    poll();
    EXPECT_EQ(greatest(), 99.0);
    poll(2);
    EXPECT_EQ(greatest(), 30.0) << "the former value of a channel that is not polled";
}

TEST_F(TemperatureMonitor, WithNoChannelsNothingIsPolledAndTheMaximumIsKept)
{
    poll();
    for (const int channels : {0, -1}) {
        poll(channels);
        EXPECT_EQ(greatest(), 30.0);
    }
    EXPECT_EQ(module_of(1).connections(), 1u);
}

TEST_F(TemperatureMonitor, BeyondFourChannelsThereAreNone)
{
    poll(77);
    EXPECT_EQ(live(), (std::array{true, true, true, true}));
    EXPECT_EQ(module_of(4).connections(), 1u);
}

TEST_F(TemperatureMonitor, TheValueIsTheTextBeforeTheFirstSemicolon)
{
    struct Row {
        const char* reply;
        const char* stored;
        double value;
    };
    const Row rows[] = {
        {"42.5;+OK", "42.5", 42.5},
        {"42.5;+OK\r\n", "42.5", 42.5},
        {"42.5\r\n", "42.5", 42.5}, // no word of success either: only "-ERR" refuses
        {"42.5", "42.5", 42.5},
        {" 17;99;+OK\r\n", "17", 17},
        {"-12.25;+OK\r\n", "-12.25", -12.25},
        {"3.5e1;+OK\r\n", "35", 35},
        {"44.25 C;+OK\r\n", "44.25", 44.25},
    };
    for (const Row& row : rows) {
        module_of(1).always(ModuleAnswer::reply(row.reply));
        poll(1);
        EXPECT_EQ(greatest(), row.value) << row.reply;
        EXPECT_EQ(text(1, ODT_TEMP), row.stored) << row.reply;
    }
}

TEST_F(TemperatureMonitor, EachChannelsRecordGetsItsOwnTemperature)
{
    for (int ch = 1; ch <= kMaxChannels; ++ch) {
        answers(ch, std::to_string(30 + ch) + ".125");
    }
    poll();
    for (int ch = 1; ch <= kMaxChannels; ++ch) {
        EXPECT_EQ(text(ch, ODT_TEMP), std::to_string(30 + ch) + ".125");
    }
}

TEST_F(TemperatureMonitor, TheMaximumIsThatOfAllChannelsAndCanFall)
{
    EXPECT_EQ(greatest(), 0.0);
    answers(2, "47.5");
    answers(4, "-3");
    poll();
    EXPECT_EQ(greatest(), 47.5);
    answers(2, "-5");
    answers(1, "-4");
    answers(3, "-6");
    poll();
    EXPECT_EQ(greatest(), -3.0);
}

// ---- alarm

TEST_F(TemperatureMonitor, FromSixtyFiveDegreesUpAChannelIsTooHot)
{
    answers(2, "65.0");
    poll();
    EXPECT_EQ(verdict(kTempTest), (Verdict{BIT_FAIL, 0x2}));
    answers(2, "64.99");
    poll();
    EXPECT_EQ(verdict(kTempTest), kPassed);
}

TEST_F(TemperatureMonitor, TheErrorWordHasABitForEachChannelThatIsTooHot)
{
    for (int mask = 0; mask < 16; ++mask) {
        for (int ch = 1; ch <= kMaxChannels; ++ch) {
            answers(ch, (mask >> (ch - 1) & 1) != 0 ? "71.5" : "40");
        }
        poll();
        EXPECT_EQ(verdict(kTempTest), (Verdict{mask != 0 ? BIT_FAIL : BIT_PASS, mask}));
    }
}

TEST_F(TemperatureMonitor, AGoodPollDoesNotReportToTheModulesTest)
{
    poll();
    EXPECT_EQ(verdict(kModulesTest), kUntouched);
    EXPECT_EQ(verdict(kTempTest), kPassed);
}

TEST_F(TemperatureMonitor, AGoodPollLogsNothing)
{
    logs.clear();
    poll();
    EXPECT_EQ(logs.lines(), std::vector<LogLine>{});
}

// ---- modules that fail

TEST_F(TemperatureMonitor, AModuleThatRefusesCountsAsHotAndIsNotLive)
{
    poll();
    logs.clear();
    refuses(2);
    poll();
    EXPECT_EQ(greatest(), 100.0);
    EXPECT_EQ(live(), (std::array{true, false, true, true}));
    EXPECT_EQ(text(2, ODT_TEMP), "30") << "the record keeps the last good one";
    EXPECT_EQ(verdict(kTempTest), kPassed) << "only a real reading is an alarm";
    EXPECT_EQ(verdict(kModulesTest).result, BIT_FAIL);
    EXPECT_EQ(verdict(kModulesTest).errorCode & ~0xf0, 0) << "the others answered";
    EXPECT_NE(verdict(kModulesTest).errorCode & 0xf0, 0);
    EXPECT_EQ(
        logs.lines(),
        (std::vector<LogLine>{{LOG_INFO, "checkOrvanReply: -ERR -200, \"Execution error\"\r\n"}, kRefused}));
}

TEST_F(TemperatureMonitor, AFailureIsReportedForTheNamedChannelsOnly)
{
    refuses(2);
    poll(2);
    EXPECT_EQ(live(), (std::array{true, false, false, false}));
    EXPECT_EQ(verdict(kModulesTest).result, BIT_FAIL);
    EXPECT_NE(verdict(kModulesTest).errorCode & 0xf0, 0);
    EXPECT_EQ(verdict(kModulesTest).errorCode & ~0xf0, 0) << "3 and 4 are not live, but were not asked";
}

TEST_F(TemperatureMonitor, ADeadModuleDoesNotEndThePollOfTheOthers)
{
    modules[0] = nullptr;
    logs.clear();
    poll();
    EXPECT_EQ(live(), (std::array{false, true, true, true}));
    EXPECT_EQ(greatest(), 100.0);
    EXPECT_EQ(text(4, ODT_TEMP), "30");
    EXPECT_EQ(logs.count(LOG_WARNING, "Failed to get temperature: -ERR Unable to connect\n"), 1u);
    EXPECT_EQ(verdict(kTempTest), kPassed);
    EXPECT_EQ(verdict(kModulesTest).result, BIT_FAIL);
}

TEST_F(TemperatureMonitor, AModuleHotterThanTheSubstituteSetsTheMaximum)
{
    refuses(1);
    answers(2, "120");
    poll();
    EXPECT_EQ(greatest(), 120.0);
    EXPECT_EQ(verdict(kTempTest), (Verdict{BIT_FAIL, 0x2}));
    EXPECT_EQ(verdict(kModulesTest).result, BIT_FAIL);
}

TEST_F(TemperatureMonitor, AModuleThatReturnsIsLiveAtTheNextPoll)
{
    refuses(2);
    poll();
    const Verdict failure = verdict(kModulesTest);
    answers(2, "33.5");
    poll();
    EXPECT_EQ(live(), (std::array{true, true, true, true}));
    EXPECT_EQ(greatest(), 33.5);
    EXPECT_EQ(text(2, ODT_TEMP), "33.5");
    EXPECT_EQ(verdict(kTempTest), kPassed);
    EXPECT_EQ(verdict(kModulesTest), failure) << "its last failure is kept";
}

TEST_F(TemperatureMonitor, WhenTheOwnServerDoesNotAnswerTheSelectedChannelIsNotLive)
{
    orvanx->setSelectedChannel(1);
    own_server.always(ModuleAnswer::reset());
    poll();
    EXPECT_EQ(live(), (std::array{false, true, true, true}));
    EXPECT_EQ(module_of(1).connections(), 0u);
}

TEST_F(TemperatureMonitor, WithoutRecordsThePollStillWorks)
{
    poll(0);
    const Scpi_Orvanx* const before = orvanx;
    delete before;
    SCPI_Deinit(&scpi_context);
    orvanx = Scpi_Orvanx::getInstance();
    for (int ch = 1; ch <= kMaxChannels; ++ch) {
        connect_module(ch, module_of(ch));
    }
    answers(3, "44");
    poll();
    EXPECT_EQ(greatest(), 44.0);
    EXPECT_EQ(live(), (std::array{true, true, true, true}));
}

TEST_F(TemperatureMonitor, AGoodReplyThatDoesNotStartWithANumberThrows)
{
    for (const char* text : {"", "+OK\r\n", "warm;+OK\r\n", ";+OK\r\n"}) {
        module_of(1).always(ModuleAnswer::reply(text));
        EXPECT_THROW(orvanx->getTempOrvanXForAlltheChannel(1), std::logic_error) << text;
    }
}

TEST_F(TemperatureMonitor, AnEmptyValueIsNotStored)
{
    poll();
    logs.clear();
    module_of(1).always(ModuleAnswer::reply(";+OK\r\n"));
    EXPECT_THROW(poll(1), std::invalid_argument);
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_ERR, "invalid input: buff = ok, size = 0"}}));
    EXPECT_EQ(text(1, ODT_TEMP), "30");
}

TEST_F(TemperatureMonitor, APollThatThrowsLeavesLivenessAndMaximumAsTheyWere)
{
    poll();
    refuses(1);
    module_of(2).always(ModuleAnswer::reply("1e999;+OK\r\n"));
    answers(3, "80");
    EXPECT_THROW(poll(), std::out_of_range);
    EXPECT_EQ(live(), (std::array{false, true, true, true}));
    EXPECT_EQ(greatest(), 30.0);
    EXPECT_EQ(module_of(3).connections(), 1u);
    EXPECT_EQ(verdict(kTempTest), kPassed);
    EXPECT_EQ(verdict(kModulesTest), kUntouched);
}

// ---- the answer for the service

TEST_F(TemperatureMonitor, TheResponseIsTheMaximumOfItsOwnPoll)
{
    answers(4, "48.25");
    logs.clear();
    EXPECT_EQ(orvanx->getTempratureForOrvanXResponse(), "48.250000");
    EXPECT_EQ(module_of(4).connections(), 1u);
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_INFO, "getTempratureForOrvanXResponse start\n"}}));
    refuses(4);
    EXPECT_EQ(orvanx->getTempratureForOrvanXResponse(), "100.000000");
}

TEST_F(TemperatureMonitor, TheResponsePollsOnlyInstalledChannels)
{
    orvanx->setNumberofChannels(2);
    answers(3, "90");
    EXPECT_EQ(orvanx->getTempratureForOrvanXResponse(), "30.000000");
    orvanx->setNumberofChannels(kMaxChannels); // as many as the records to be unmapped
}

TEST_F(TemperatureMonitor, TheResponseAfterANonNumericAnswerIsThePreviousMaximum)
{
    poll();
    module_of(1).always(ModuleAnswer::close_mute());
    logs.clear();
    EXPECT_EQ(orvanx->getTempratureForOrvanXResponse(), "30.000000");
    ASSERT_EQ(logs.lines().size(), 3u);
    EXPECT_EQ(logs.lines()[1], (LogLine{LOG_ERR, "invalid input: buff = ok, size = 0"}));
    EXPECT_TRUE(logs.lines()[2].text.starts_with("getTempratureForOrvanXResponse: "));
}

} // namespace
