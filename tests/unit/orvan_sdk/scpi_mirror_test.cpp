#include "orvan_sdk/scpi-parser/scpi-bypass.h"
#include "records_bench.h"

using namespace orvan_test;

namespace {

// ---- the mirror

class Mirror : public RecordsBench {
protected:
    /** A line whose one run the module answers with `reply`. */
    std::string run(const std::string& line, const std::string& reply)
    {
        module.then(ModuleAnswer::reply(reply));
        return ask(line);
    }
};

TEST_F(Mirror, ASetStoresTheClientsParameterInTheSelectedChannel)
{
    orvanx->setSelectedChannel(2);
    EXPECT_EQ(run(":FREQ 2500000000", "+OK\r\n"), "+OK\r\n");
    EXPECT_EQ(text(2, ODT_FREQ), "2500000000");
    for (int other : {1, 3, 4}) {
        EXPECT_EQ(text(other, ODT_FREQ), "1000000000");
    }
}

TEST_F(Mirror, ASetIsMirroredAsWrittenUntilTheNextQuery)
{
    run(":FREQ 1GHz", "+OK\r\n");
    EXPECT_EQ(text(1, ODT_FREQ), "1");
    EXPECT_EQ(run(":FREQ?", "1000000000;+OK\r\n"), "1000000000;+OK\r\n");
    EXPECT_EQ(text(1, ODT_FREQ), "1000000000");
}

TEST_F(Mirror, QueryAndSetOfOneValueShareTheirElement)
{
    run(":TRIG:EDG NEGative", "+OK\r\n");
    EXPECT_EQ(text(1, ODT_TRG_EDGE), "NEGative");
    run(":TRIG:EDG?", "POS;+OK\r\n");
    EXPECT_EQ(text(1, ODT_TRG_EDGE), "POS");
    run(":LIST:STAT On", "+OK\r\n");
    EXPECT_EQ(text(1, ODT_LIST_STAT), "ON");
    run(":LIST:STAT on", "+OK\r\n");
    EXPECT_EQ(text(1, ODT_LIST_STAT), "OFF");
}

TEST_F(Mirror, QueriesTakeTheRepliesSegmentsInOrderAndSetsTheirParameter)
{
    EXPECT_EQ(run(":FREQ?;:POW -3;:PHAS?", "7;8;+OK\r\n"), "7;8;+OK\r\n");
    EXPECT_EQ(text(1, ODT_FREQ), "7");
    EXPECT_EQ(text(1, ODT_PWR), "-3");
    EXPECT_EQ(text(1, ODT_PHASE), "8");
}

TEST_F(Mirror, AQueryWithoutAnElementStillTakesItsSegment)
{
    EXPECT_EQ(run(":INIT:GATE?;:FREQ?", "1;123;+OK\r\n"), "1;123;+OK\r\n");
    EXPECT_EQ(text(1, ODT_FREQ), "123");
    EXPECT_EQ(text(1, ODT_INIT_RUN), "OFF");
}

TEST_F(Mirror, ARunOfSetsWithNoReplyUpdatesThemAll)
{
    run(":FREQ 11;:POW 12;:INIT:GATE ON;:PHAS 13", "+OK\r\n");
    EXPECT_EQ(text(1, ODT_FREQ), "11");
    EXPECT_EQ(text(1, ODT_PWR), "12");
    EXPECT_EQ(text(1, ODT_PHASE), "13");
}

TEST_F(Mirror, ASetWithoutAParameterUpdatesNothing)
{
    run(":FREQ;:POW?", "4;+OK\r\n");
    EXPECT_EQ(text(1, ODT_FREQ), "1000000000");
    EXPECT_EQ(text(1, ODT_PWR), "4");
    run(":FREQ", "+OK\r\n");
    EXPECT_EQ(text(1, ODT_FREQ), "1000000000");
}

TEST_F(Mirror, AnErrorIsAssignedToTheFirstItemThatFindsIt)
{
    EXPECT_EQ(run(":FREQ 1;:POW 99", "-ERR -222, \"Data out of range\";+OK\r\n"),
              "-ERR -222, \"Data out of range\";+OK\r\n");
    EXPECT_EQ(text(1, ODT_FREQ), "1000000000");
    EXPECT_EQ(text(1, ODT_PWR), "99"); // though it is what the module refused
}

TEST_F(Mirror, AnErrorInTheMiddleSkipsOneItem)
{
    run(":FREQ?;:POW?;:PHAS?", "1;-ERR -200;3;+OK\r\n");
    EXPECT_EQ(text(1, ODT_FREQ), "1");
    EXPECT_EQ(text(1, ODT_PWR), "5");
    EXPECT_EQ(text(1, ODT_PHASE), "3");
}

TEST_F(Mirror, AFailedConversationSkipsTheFirstItemAlone)
{
    orvanx->m_OrvanXport[0] = 1; // refuses connections
    EXPECT_EQ(ask(":FREQ 1;:POW 7;:PHAS 8"), "-ERR Unable to connect;+OK\r\n");
    EXPECT_EQ(text(1, ODT_FREQ), "1000000000");
    EXPECT_EQ(text(1, ODT_PWR), "7");
    EXPECT_EQ(text(1, ODT_PHASE), "8");
}

TEST_F(Mirror, AFailedQueryIsNotMirrored)
{
    orvanx->m_OrvanXport[0] = 1;
    ask(":FREQ?;:POW?");
    EXPECT_EQ(text(1, ODT_FREQ), "1000000000");
    EXPECT_EQ(text(1, ODT_PWR), "5");
}

TEST_F(Mirror, AnErrorInsideASegmentIsNoError)
{
    run(":TRIG:EDG?", "x-ERR;+OK\r\n");
    EXPECT_EQ(text(1, ODT_TRG_EDGE), "x-ERR");
}

TEST_F(Mirror, AResultWithASeparatorShiftsTheOthersByOne)
{
    run(":TRIG:EDG?;:FREQ?;:POW?", "a;b;17;18;+OK\r\n");
    EXPECT_EQ(text(1, ODT_TRG_EDGE), "a");
    EXPECT_EQ(text(1, ODT_FREQ), "0");
    EXPECT_EQ(text(1, ODT_PWR), "17");
}

TEST_F(Mirror, AResultWithACommaIsOneSegment)
{
    run(":FREQ?;:TRIG:EDG?", "5,6;a,b;+OK\r\n");
    EXPECT_EQ(text(1, ODT_FREQ), "5");
    EXPECT_EQ(text(1, ODT_TRG_EDGE), "a,b");
}

TEST_F(Mirror, AnEmptySegmentIsAnAnswer)
{
    run(":FREQ?;:TRIG:EDG?;:POW?", ";;3;+OK\r\n");
    EXPECT_EQ(text(1, ODT_FREQ), "0");
    EXPECT_EQ(text(1, ODT_TRG_EDGE), "");
    EXPECT_EQ(text(1, ODT_PWR), "3");
}

TEST_F(Mirror, QueriesPastTheReplysEndKeepTheirValues)
{
    run(":FREQ?;:POW?", "9;+OK\r\n");
    EXPECT_EQ(text(1, ODT_FREQ), "9");
    EXPECT_EQ(text(1, ODT_PWR), "5");
}

TEST_F(Mirror, OnlyTheKeptPartOfALongParameterIsMirrored)
{
    const std::string parameter = "0." + std::string(150, '0') + "1";
    run(":PHAS " + parameter, "+OK\r\n");
    EXPECT_EQ(text(1, ODT_PHASE), "0"); // the digit is past the 127 characters
    EXPECT_EQ(module.requests().back(), ":PHAS " + parameter + ";\r\n");
}

TEST_F(Mirror, QuotesOfATextParameterAreKept)
{
    run(":LIST:DEF \"one\"", "+OK\r\n");
    EXPECT_EQ(text(1, ODT_LIST_DEF), "\"one\"");
}

TEST_F(Mirror, TheReplyIsTheModulesWhateverTheMirrorDoes)
{
    EXPECT_EQ(run(":FREQ?;:POW?", "abc;-ERR 5;+OK\r\n"), "abc;-ERR 5;+OK\r\n");
}

TEST_F(Mirror, AnErrorSegmentMarksTheReplyForTheRun)
{
    userContext_t& u = user();
    u.bypass_item_count = 1;
    u.bypass_items[0] = {ODT_FREQ, 1, 0, ""};
    bypass_apply_db_updates(&scpi_context, orvanx, "5");
    EXPECT_EQ(u.had_error_line, 0);
    bypass_apply_db_updates(&scpi_context, orvanx, "-ERR 5");
    EXPECT_EQ(u.had_error_line, 1);
    EXPECT_EQ(text(1, ODT_FREQ), "5");
    end_bypass_run(&u);
    EXPECT_EQ(u.had_error_line, 0);
}

TEST_F(Mirror, WithoutAUserRecordOrAParserNothingHappens)
{
    user().bypass_item_count = 1;
    user().bypass_items[0] = {ODT_FREQ, 1, 0, ""};
    bypass_apply_db_updates(&scpi_context, nullptr, "5");
    void* const record = scpi_context.user_context;
    scpi_context.user_context = nullptr;
    bypass_apply_db_updates(&scpi_context, orvanx, "5");
    scpi_context.user_context = record;
    EXPECT_EQ(text(1, ODT_FREQ), "1000000000");
}

TEST_F(Mirror, EachRunOfALineIsSentToTheChannelSelectedThen)
{
    module.always(ModuleAnswer::reply("+OK\r\n"));
    ask(":FREQ 3");
    orvanx->setSelectedChannel(4);
    ask(":FREQ 4");
    EXPECT_EQ(text(1, ODT_FREQ), "3");
    EXPECT_EQ(text(4, ODT_FREQ), "4");
}

TEST_F(FrontEndBench, WithoutRecordsTheReplyIsStillSent)
{
    module.then(ModuleAnswer::reply("1;+OK\r\n"));
    EXPECT_EQ(ask(":FREQ?"), "1;+OK\r\n");
}

} // namespace
