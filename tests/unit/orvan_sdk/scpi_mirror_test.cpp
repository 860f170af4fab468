#include "records_bench.h"

#include <cmath>
#include <limits>
#include <sys/mman.h>

#include "orvan_sdk/scpi-parser/scpi-bypass.h"

using namespace orvan_test;

namespace {

// ---- update_orvan_DB

constexpr uint32_t kPos = 16; // of the element in the record below
constexpr uint8_t kUntouched = 0xA5;

// What a text leaves of a record of 80 bytes, and that nothing outside the element's bytes changed.
class Stored {
public:
    Stored(ValueTypes type, const char* text, double factor, uint32_t size)
    {
        std::memset(m_record, kUntouched, sizeof m_record);
        const OrvanElementData element{kPos, factor, type, size, eSendNone};
        update_orvan_DB(m_record, &element, text);
        for (uint32_t i = 0; i < sizeof m_record; ++i) {
            const bool inside = i >= kPos && i < kPos + size;
            EXPECT_TRUE(inside || m_record[i] == kUntouched) << "byte " << i << " for " << text;
        }
    }

    template <typename T>
    T as() const
    {
        T value;
        std::memcpy(&value, m_record + kPos, sizeof value);
        return value;
    }
    const char* text() const { return reinterpret_cast<const char*>(m_record + kPos); }
    uint8_t byte(size_t index) const { return m_record[kPos + index]; }

private:
    uint8_t m_record[80];
};

int switch_of(const char* text, double factor = 1.0)
{
    return Stored(TYPE_BOOL, text, factor, 4).as<int>();
}
int32_t int32_of(const char* text, double factor = 1.0)
{
    return Stored(TYPE_INT32, text, factor, 4).as<int32_t>();
}
uint32_t uint32_of(const char* text, double factor = 1.0)
{
    return Stored(TYPE_UINT32, text, factor, 4).as<uint32_t>();
}
int64_t int64_of(const char* text, double factor = 1.0)
{
    return Stored(TYPE_INT64, text, factor, 8).as<int64_t>();
}
uint64_t uint64_of(const char* text, double factor = 1.0)
{
    return Stored(TYPE_UINT64, text, factor, 8).as<uint64_t>();
}
float float_of(const char* text, double factor = 1.0)
{
    return Stored(TYPE_FLOAT, text, factor, 4).as<float>();
}
double double_of(const char* text, double factor = 1.0)
{
    return Stored(TYPE_DOUBLE, text, factor, 8).as<double>();
}

TEST(UpdateElement, OnlyThreeSpellingsAreOn)
{
    for (const char* on : {"ON", "On", "1"})
        EXPECT_EQ(switch_of(on), 1) << on;
    for (const char* off : {"OFF", "0", "on", "oN", "", "2", "01", "1.0", "ON ", " ON", "TRUE", "-1"})
        EXPECT_EQ(switch_of(off), 0) << off;
}

TEST(UpdateElement, ASwitchIsNotScaled)
{
    EXPECT_EQ(switch_of("ON", 5.0), 1);
}

TEST(UpdateElement, IntegersAreTakenInBaseTen)
{
    EXPECT_EQ(int32_of("-42"), -42);
    EXPECT_EQ(int32_of("010"), 10);
    EXPECT_EQ(int32_of("0x10"), 0);
    EXPECT_EQ(int32_of("2147483647"), 2147483647);
    EXPECT_EQ(uint32_of("4294967295"), 4294967295u);
    EXPECT_EQ(int64_of("-9223372036854775808"), std::numeric_limits<int64_t>::min());
    EXPECT_EQ(uint64_of("18446744073709551615"), std::numeric_limits<uint64_t>::max());
}

TEST(UpdateElement, IntegersAreScaledByTheTruncatedFactor)
{
    EXPECT_EQ(int32_of("3", 1000.9), 3000);
    EXPECT_EQ(int32_of("3", -2.9), -6);
    EXPECT_EQ(uint32_of("3", 1000.9), 3000u);
    EXPECT_EQ(int64_of("-3", 1e9), -3000000000);
    EXPECT_EQ(uint64_of("3", 1e9), 3000000000u);
}

TEST(UpdateElement, AFractionalFactorMakesAnIntegerZero)
{
    EXPECT_EQ(int32_of("1000", 0.999), 0);
    EXPECT_EQ(uint32_of("1000", 0.001), 0u);
    EXPECT_EQ(int64_of("1000", 0.5), 0);
    EXPECT_EQ(uint64_of("1000", 0.5), 0u);
}

TEST(UpdateElement, APastTheRangeProductIsNoTrap)
{
    EXPECT_EQ(int32_of("2147483647", 2.0), -2);
    EXPECT_EQ(int64_of("9223372036854775807", 2.0), -2);
}

TEST(UpdateElement, FractionsOfAnIntegerAreNotRead)
{
    EXPECT_EQ(int32_of("1.9"), 1);
    EXPECT_EQ(uint32_of("1e3"), 1u);
    EXPECT_EQ(int64_of("-1.9"), -1);
}

TEST(UpdateElement, FloatsAndDoublesAreScaledExactly)
{
    EXPECT_EQ(float_of("0.1"), 0.1f);
    EXPECT_EQ(float_of("0.1", 3.0), 0.1f * 3.0f);
    EXPECT_EQ(float_of("7.61", 0.001), 7.61f * 0.001f);
    EXPECT_NE(7.61f * 0.001f, static_cast<float>(7.61 * 0.001)) << "or the line above shows nothing";
    EXPECT_EQ(double_of("-12.5"), -12.5);
    EXPECT_EQ(double_of("2.5e9"), 2.5e9);
    EXPECT_EQ(double_of("1.0E-06"), 1e-6);
    EXPECT_EQ(double_of("1000", 0.001), 1.0);
    EXPECT_EQ(double_of("0.1", 3.0), 0.1 * 3.0);
}

TEST(UpdateElement, ANumberEndsAtTheFirstCharacterThatDoesNotFit)
{
    EXPECT_EQ(double_of("1GHz"), 1.0);
    EXPECT_EQ(double_of("1GHz", 1e9), 1e9);
    EXPECT_EQ(double_of("5.5,6.5"), 5.5);
    EXPECT_EQ(int32_of("12dB"), 12);
    EXPECT_EQ(float_of(" 3 4"), 3.0f);
}

TEST(UpdateElement, ATextThatIsNoNumberIsZero)
{
    EXPECT_EQ(int32_of("MAX"), 0);
    EXPECT_EQ(uint32_of(""), 0u);
    EXPECT_EQ(int64_of("-"), 0);
    EXPECT_EQ(uint64_of("x"), 0u);
    EXPECT_EQ(float_of("DEF"), 0.0f);
    EXPECT_EQ(double_of("\"5\""), 0.0);
}

TEST(UpdateElement, ASmallerElementGetsAsManyBytesAsItHas)
{
    EXPECT_EQ(Stored(TYPE_INT32, "16909060", 1.0, 2).byte(0), 4); // 0x01020304
    EXPECT_EQ(Stored(TYPE_INT32, "16909060", 1.0, 2).byte(1), 3);
    EXPECT_EQ(Stored(TYPE_BOOL, "ON", 1.0, 1).byte(0), 1);
    Stored(TYPE_DOUBLE, "1", 1.0, 0); // no byte at all
}

TEST(UpdateElement, ALargerElementGetsTheValuesWidth)
{
    struct {
        ValueTypes type;
        size_t width;
    } const rows[] = {{TYPE_BOOL, 4},   {TYPE_INT32, 4}, {TYPE_UINT32, 4}, {TYPE_INT64, 8},
                      {TYPE_UINT64, 8}, {TYPE_FLOAT, 4}, {TYPE_DOUBLE, 8}};
    for (const auto& row : rows) {
        const Stored stored(row.type, "0", 1.0, 16);
        EXPECT_EQ(stored.byte(row.width - 1), 0) << row.type;
        EXPECT_EQ(stored.byte(row.width), kUntouched) << row.type;
    }
}

TEST(UpdateElement, ATextIsStoredWithItsQuotesAndItsEnd)
{
    const Stored stored(TYPE_STRING, "\"list one\"", 1.0, 32);
    EXPECT_STREQ(stored.text(), "\"list one\"");
    EXPECT_EQ(stored.byte(11), kUntouched);
    EXPECT_STREQ(Stored(TYPE_STRING, "", 1.0, 32).text(), "");
}

TEST(UpdateElement, ATextKeepsOneByteLessThanItsField)
{
    const std::string forty(40, 'x');
    EXPECT_EQ(Stored(TYPE_STRING, forty.c_str(), 1.0, 32).text(), std::string(31, 'x'));
    EXPECT_EQ(Stored(TYPE_STRING, forty.substr(0, 32).c_str(), 1.0, 32).text(), std::string(31, 'x'));
    EXPECT_EQ(Stored(TYPE_STRING, forty.substr(0, 31).c_str(), 1.0, 32).text(), std::string(31, 'x'));
    EXPECT_STREQ(Stored(TYPE_STRING, "x", 1.0, 1).text(), "");
}

TEST(UpdateElement, ATextIsReadNoFurtherThanItsFieldTakes)
{
    constexpr size_t kPage = 4096;
    void* const pages = mmap(nullptr, 2 * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    ASSERT_EQ(mprotect(static_cast<char*>(pages) + kPage, kPage, PROT_NONE), 0);
    char* const without_end = static_cast<char*>(pages) + kPage - 31;
    std::memset(without_end, 'x', 31);
    uint8_t record[32];
    const OrvanElementData element{0, 1.0, TYPE_STRING, sizeof record, eSendNone};
    update_orvan_DB(record, &element, without_end);
    EXPECT_EQ(reinterpret_cast<const char*>(record), std::string(31, 'x'));
    munmap(pages, 2 * kPage);
}

TEST(UpdateElement, ATextFieldWithoutSizeIsNotTouched)
{
    Stored(TYPE_STRING, "x", 1.0, 0);
    Stored(TYPE_STRING, "", 1.0, 0);
}

TEST(UpdateElement, WithANullNothingHappens)
{
    uint8_t record[32];
    std::memset(record, kUntouched, sizeof record);
    const OrvanElementData element{0, 1.0, TYPE_INT32, 4, eSendNone};
    update_orvan_DB(nullptr, &element, "1");
    update_orvan_DB(record, nullptr, "1");
    update_orvan_DB(record, &element, nullptr);
    EXPECT_EQ(record[0], kUntouched);
}

TEST(UpdateElement, AnUnknownTypeStoresNothing)
{
    Stored(static_cast<ValueTypes>(8), "1", 1.0, 0);
}

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
    for (int other : {1, 3, 4})
        EXPECT_EQ(text(other, ODT_FREQ), "1000000000");
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

TEST_F(Mirror, AnErrorIsChargedToTheFirstItemThatMeetsIt)
{
    EXPECT_EQ(run(":FREQ 1;:POW 99", "-ERR -222, \"Data out of range\";+OK\r\n"),
              "-ERR -222, \"Data out of range\";+OK\r\n");
    EXPECT_EQ(text(1, ODT_FREQ), "1000000000");
    EXPECT_EQ(text(1, ODT_PWR), "99"); // though it is what the module refused
}

TEST_F(Mirror, AnErrorInTheMidstSkipsOneItem)
{
    run(":FREQ?;:POW?;:PHAS?", "1;-ERR -200;3;+OK\r\n");
    EXPECT_EQ(text(1, ODT_FREQ), "1");
    EXPECT_EQ(text(1, ODT_PWR), "5");
    EXPECT_EQ(text(1, ODT_PHASE), "3");
}

TEST_F(Mirror, AFailedConversationSkipsTheFirstItemAlone)
{
    orvanx->m_OrvanXport[0] = 1; // nobody listens
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

TEST_F(Mirror, AResultWithASeparatorMovesTheOthersByOne)
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

TEST_F(Mirror, QueriesBehindTheRepliesEndKeepTheirValues)
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

TEST_F(Mirror, TheReplyIsTheModulesWhateverTheMirrorDid)
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

TEST_F(Mirror, EachRunOfALineGoesToTheChannelSelectedThen)
{
    module.always(ModuleAnswer::reply("+OK\r\n"));
    ask(":FREQ 3");
    orvanx->setSelectedChannel(4);
    ask(":FREQ 4");
    EXPECT_EQ(text(1, ODT_FREQ), "3");
    EXPECT_EQ(text(4, ODT_FREQ), "4");
}

TEST_F(FrontEndBench, WithoutRecordsTheReplyIsSentAllTheSame)
{
    module.then(ModuleAnswer::reply("1;+OK\r\n"));
    EXPECT_EQ(ask(":FREQ?"), "1;+OK\r\n");
}

} // namespace
