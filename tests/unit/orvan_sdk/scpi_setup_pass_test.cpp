// What is sent from the records to a module.
#include <algorithm>

#include "edited_row.h"
#include "setup_bench.h"

using namespace orvan_test;

namespace {

using Lines = std::vector<LogLine>;
using Requests = std::vector<std::string>;

// ---- get_scpi_pattern

TEST(ScpiPattern, LosesItsOptionalPartsAndKeepsItsForms)
{
    const scpi_command_t commands[] = {
        {":OUTPut[:STATe]", nullptr, 1},
        {"[:SOURce]:FREQuency", nullptr, 2},
        {"[:SOURce]:AM:INTernal:FREQuency", nullptr, 3},
        {"*RST", nullptr, 4},
        {"[:A][:B]", nullptr, 5},
        {nullptr, nullptr, 0},
    };
    EXPECT_EQ(get_scpi_pattern(commands, 1), ":OUTPut");
    EXPECT_EQ(get_scpi_pattern(commands, 2), ":FREQuency");
    EXPECT_EQ(get_scpi_pattern(commands, 3), ":AM:INTernal:FREQuency");
    EXPECT_EQ(get_scpi_pattern(commands, 4), "*RST");
    EXPECT_EQ(get_scpi_pattern(commands, 5), "");
}

TEST(ScpiPattern, IsThatOfTheFirstRowWithTheTag)
{
    const scpi_command_t commands[] = {
        {":SET", nullptr, 7},  {":SET?", nullptr, 7}, {":OTHer", nullptr, 7},
        {":ASK?", nullptr, 8}, {":ASK", nullptr, 8},  {nullptr, nullptr, 9},
    };
    EXPECT_EQ(get_scpi_pattern(commands, 7), ":SET");
    EXPECT_EQ(get_scpi_pattern(commands, 8), ":ASK?");
    EXPECT_EQ(get_scpi_pattern(commands, 9), "") << "the end row does not count";
}

TEST(ScpiPattern, IsEmptyForATagThatNoRowHas)
{
    EXPECT_EQ(get_scpi_pattern(scpi_commands, 9999), "");
    EXPECT_EQ(get_scpi_pattern(scpi_commands, ODT_PM_SRC), "");
    const scpi_command_t none[] = {{nullptr, nullptr, 1}};
    EXPECT_EQ(get_scpi_pattern(none, 1), "");
}

TEST(ScpiPattern, OfAQueryOnlyElementEndsInAQuestionMark)
{
    EXPECT_EQ(get_scpi_pattern(scpi_commands, ODT_TEMP), ":SYSTem:TEMPerature?");
    EXPECT_EQ(get_scpi_pattern(scpi_commands, ODT_INF_MODEL), ":SYSTem:INFormation:MODel?");
    EXPECT_EQ(get_scpi_pattern(scpi_commands, ODT_REF_OSC_MODE), ":ROSCillator:SOURce?");
}

TEST(ScpiPattern, OfEverySentElementSetsIt)
{
    for (const std::span<const SentElement> pass :
         {std::span<const SentElement>(kSentValues), std::span<const SentElement>(kSentStates)}) {
        for (const SentElement& element : pass) {
            EXPECT_EQ(get_scpi_pattern(scpi_commands, element.tag), element.header);
        }
    }
}

// ---- scpi_cmds_pass

class CommandPass : public SetupBench {
protected:
    CommandPass() : SetupBench(2) {}
};

TEST(CommandPasses, HoldTheElementsMarkedInTheElementTable)
{
    std::vector<int> marked[3];
    for (int tag = 0; tag < static_cast<int>(kOrvanElementCount); ++tag) {
        marked[OrvanData::orvanMap[tag].send].push_back(tag);
    }
    const auto tags = [](std::span<const SentElement> pass) {
        std::vector<int> found;
        for (const SentElement& element : pass) {
            found.push_back(element.tag);
        }
        return found;
    };
    EXPECT_EQ(marked[eSendPri1], tags(kSentValues));
    EXPECT_EQ(marked[eSendPri2], tags(kSentStates));
}

TEST_F(CommandPass, EachElementIsItsOwnRequestInTagOrder)
{
    set_sent_setup(1);
    orvanx->scpi_cmds_pass(1, eSendPri1);
    EXPECT_EQ(module.requests(), requests_of(kSentValues));
}

TEST_F(CommandPass, TheSecondPassHasTheStates)
{
    set_sent_setup(1);
    orvanx->scpi_cmds_pass(1, eSendPri2);
    EXPECT_EQ(module.requests(), requests_of(kSentStates));
}

TEST_F(CommandPass, IsSentToTheChannelsModuleWithItsRecordWhetherLiveOrNot)
{
    const ScriptedModule second("127.0.8.1");
    connect_module(2, second);
    set_sent_setup(2);
    orvanx->m_isLive[1] = false;
    orvanx->scpi_cmds_pass(2, eSendPri1);
    EXPECT_EQ(second.requests(), requests_of(kSentValues));
    EXPECT_EQ(module.connections(), 0u);
}

TEST_F(CommandPass, EachAcceptedCommandIsLogged)
{
    Lines expected;
    for (const SentElement& element : kSentStates) {
        expected.push_back({LOG_INFO, std::string("command ") + element.header + " sent: OK"});
    }
    orvanx->scpi_cmds_pass(1, eSendPri2);
    EXPECT_EQ(logs.lines(), expected);
}

TEST_F(CommandPass, ARefusedCommandIsLoggedWithItsReplyAndTheNextOneFollows)
{
    module.then(ModuleAnswer::reply("+OK\r\n"));
    module.then(ModuleAnswer::reply("-ERR -222, \"Data out of range\";+OK\r\n"));
    orvanx->scpi_cmds_pass(1, eSendPri2);
    const Requests sent = module.requests();
    EXPECT_EQ(sent.size(), requests_of(kSentStates).size());
    const std::string header = sent[1].substr(0, sent[1].find(' '));
    const Lines lines = logs.lines();
    ASSERT_EQ(lines.size(), sent.size() + 1);
    EXPECT_EQ(lines[1], (LogLine{LOG_INFO, "checkOrvanReply: -ERR -222, \"Data out of range\";+OK\r\n"}));
    EXPECT_EQ(lines[2],
              (LogLine{LOG_INFO, "command " + header + " sent: -ERR -222, \"Data out of range\";+OK\r\n"}));
    EXPECT_TRUE(lines[3].text.ends_with(" sent: OK"));
}

TEST_F(CommandPass, WithTheModuleDownEveryElementIsTriedAndLogged)
{
    {
        const ScriptedModule gone;
        connect_module(1, gone);
    }
    orvanx->scpi_cmds_pass(1, eSendPri1);
    for (const SentElement& element : kSentValues) {
        EXPECT_EQ(
            logs.count(LOG_INFO, std::string("command ") + element.header + " sent: -ERR Unable to connect"),
            1u);
    }
    EXPECT_EQ(logs.count(LOG_INFO, "checkOrvanReply: -ERR Unable to connect"), std::size(kSentValues));
}

TEST_F(CommandPass, AModuleThatClosesWithoutAReplyHasAccepted)
{
    module.always(ModuleAnswer::close_mute());
    orvanx->scpi_cmds_pass(1, eSendPri2);
    EXPECT_EQ(logs.count(LOG_INFO, "command :AM sent: OK"), 1u);
}

TEST_F(CommandPass, AnEmptyTextIsSentAsNoParameter)
{
    set(1, ODT_LIST_DEF, "");
    orvanx->scpi_cmds_pass(1, eSendPri1);
    const Requests sent = module.requests();
    EXPECT_EQ(std::count(sent.begin(), sent.end(), ":LIST:DEFine \r\n"), 1);
}

TEST_F(CommandPass, AnElementWithoutACommandIsNotSentWhateverItsMark)
{
    OrvanElementData marked = OrvanData::orvanMap[ODT_PM_SRC];
    marked.send = eSendPri1;
    const EditedRow edited(OrvanData::orvanMap[ODT_PM_SRC], marked);
    orvanx->scpi_cmds_pass(1, eSendPri1);
    EXPECT_EQ(module.connections(), std::size(kSentValues));
}

TEST_F(CommandPass, AMarkedElementWithACommandIsSent)
{
    OrvanElementData marked = OrvanData::orvanMap[ODT_TEMP];
    marked.send = eSendPri2;
    const EditedRow edited(OrvanData::orvanMap[ODT_TEMP], marked);
    orvanx->scpi_cmds_pass(1, eSendPri2);
    EXPECT_EQ(module.requests().back(), ":SYSTem:TEMPerature? 0\r\n");
}

TEST_F(CommandPass, AnElementThatCannotBeRenderedIsSkipped)
{
    OrvanElementData unknown = OrvanData::orvanMap[ODT_FREQ];
    unknown.type = static_cast<ValueTypes>(8);
    const EditedRow edited(OrvanData::orvanMap[ODT_FREQ], unknown);
    orvanx->scpi_cmds_pass(1, eSendPri1);
    const Requests sent = module.requests();
    EXPECT_EQ(sent.size(), std::size(kSentValues) - 1);
    EXPECT_EQ(std::count_if(sent.begin(), sent.end(),
                            [](const auto& request) { return request.starts_with(":FREQ"); }),
              0);
}

TEST_F(CommandPass, ACommandOf512BytesIsSkippedAndOneOf511IsSent)
{
    const scpi_command_t* row = scpi_commands;
    while (row->tag != ODT_PWR) {
        ++row;
    }
    set(1, ODT_PWR, "5");
    for (const size_t length : {512u, 511u}) {
        const std::string pattern = ":" + std::string(length - std::strlen(": 5\r\n"), 'P');
        const EditedRow edited(*row, scpi_command_t{pattern.c_str(), row->callback, ODT_PWR});
        orvanx->scpi_cmds_pass(1, eSendPri1);
    }
    const Requests sent = module.requests();
    EXPECT_EQ(sent.size(), 2 * std::size(kSentValues) - 1);
    EXPECT_EQ(
        std::count_if(sent.begin(), sent.end(), [](const auto& request) { return request.size() == 511; }),
        1);
}

TEST_F(CommandPass, ATextThatFillsItsFieldIsSentWhole)
{
    set(1, ODT_LIST_DEF, std::string(31, 'n'));
    orvanx->scpi_cmds_pass(1, eSendPri1);
    const Requests sent = module.requests();
    EXPECT_EQ(std::count(sent.begin(), sent.end(), ":LIST:DEFine " + std::string(31, 'n') + "\r\n"), 1);
}

} // namespace
