#include "data_fixture.h"

using namespace std::string_literals;

namespace {

constexpr scpi_choice_def_t kSources[] = {
    {"INTernal", 1}, {"EXTernal", 2}, {"CHANnel1", 3}, {"CH1", 4}, {"MANUAL", 5}, {"4Wire", 6}, {nullptr, -1},
};

constexpr scpi_choice_def_t kNumbered[] = {
    {"CH1", 1}, {"CH2", 2}, {"1", 1}, {"2", 2}, {"NONE", 0}, {"0", 0}, {nullptr, -1},
};

struct Parameter : ScpiData {
    scpi_parameter_t element{};

    bool next(bool mandatory = true) { return SCPI_Parameter(&context, &element, mandatory); }
    std::string text() const { return {element.ptr, element.len}; }
};

TEST_F(Parameter, AreReadInOrderWithWhiteSpaceAroundTheCommas)
{
    parameters("A ,\t\"b,c\"  , 3 V,#12,;,(1,2) ");
    for (const char* expected : {"A", "\"b,c\"", "3 V", "#12,;", "(1,2)"}) {
        ASSERT_TRUE(next()) << expected;
        EXPECT_EQ(text(), expected);
    }
    EXPECT_EQ(context.input_count, 5);
    EXPECT_EQ(error(), 0);
    EXPECT_FALSE(next(false));
    EXPECT_EQ(error(), 0);
}

TEST_F(Parameter, PositionIsMovedPastWhatWasRead)
{
    parameters("ABC, 12");
    ASSERT_TRUE(next());
    EXPECT_EQ(unread(), ", 12");
    ASSERT_TRUE(next());
    EXPECT_EQ(unread(), "");
}

TEST_F(Parameter, PointsIntoTheInput)
{
    parameters("'abc'");
    ASSERT_TRUE(next());
    EXPECT_EQ(element.ptr, context.param_list.lex_state.buffer);
    EXPECT_EQ(element.body, element.ptr + 1);
}

TEST_F(Parameter, MissingMandatoryIsMinus109)
{
    parameters("");
    EXPECT_FALSE(next());
    EXPECT_EQ(error(), -109);
    EXPECT_FALSE(SCPI_ParamIsValid(&element));
    EXPECT_EQ(context.input_count, 0);
}

TEST_F(Parameter, MissingMandatoryWithoutAnyTextIsMinus109)
{
    context.param_list.lex_state = {};
    EXPECT_FALSE(next());
    EXPECT_EQ(error(), -109);
}

TEST_F(Parameter, MissingSecondMandatoryIsMinus109)
{
    parameters("1");
    EXPECT_TRUE(next());
    EXPECT_FALSE(next());
    EXPECT_EQ(error(), -109);
}

TEST_F(Parameter, AbsentOptionalIsNoError)
{
    parameters("");
    EXPECT_FALSE(next(false));
    EXPECT_EQ(error(), 0);
    EXPECT_FALSE(SCPI_ParamErrorOccurred(&context));
}

TEST_F(Parameter, MistakeInAnOptionalIsAnError)
{
    parameters("@");
    EXPECT_FALSE(next(false));
    EXPECT_EQ(error(), -101);
    EXPECT_TRUE(SCPI_ParamErrorOccurred(&context));
}

TEST_F(Parameter, AllReadCountsAsTheEnd)
{
    parameters("1,2,3");
    context.param_list.lex_state.pos += context.param_list.lex_state.len;
    EXPECT_FALSE(next(false));
    EXPECT_EQ(error(), 0);
}

TEST_F(Parameter, NoCommaBetweenTwoIsMinus103)
{
    parameters("1 2");
    EXPECT_TRUE(next());
    EXPECT_FALSE(next());
    EXPECT_EQ(error(), -103);
    EXPECT_EQ(context.input_count, 1);
}

TEST_F(Parameter, NoCommaAfterAStringIsMinus103)
{
    parameters("'a'b");
    EXPECT_TRUE(next());
    EXPECT_FALSE(next());
    EXPECT_EQ(error(), -103);
}

TEST_F(Parameter, EmptyElementIsMinus102)
{
    for (const char* text : {"1,,2", "1,", "1, "}) {
        parameters(text);
        EXPECT_TRUE(next());
        EXPECT_FALSE(next(false));
        EXPECT_EQ(error(), -102) << text;
    }
    parameters(",1");
    EXPECT_FALSE(next(false));
    EXPECT_EQ(error(), -102);
}

struct Mistake {
    const char* text;
    int error;
};

class ParameterMistake : public ScpiData, public ::testing::WithParamInterface<Mistake> {};

TEST_P(ParameterMistake, ReportsItsNumber)
{
    parameters(GetParam().text);
    scpi_parameter_t element;
    EXPECT_FALSE(SCPI_Parameter(&context, &element, true));
    EXPECT_EQ(error(), GetParam().error);
    EXPECT_EQ(element.type, SCPI_TOKEN_INVALID);
}

INSTANTIATE_TEST_SUITE_P(Each, ParameterMistake,
                         ::testing::Values(Mistake{"@1", -101}, Mistake{",", -102}, Mistake{"+", -120},
                                           Mistake{"1.2.3", -121}, Mistake{"1 V%", -131},
                                           Mistake{"1 ABCDEFGHIJKLM", -134}, Mistake{"A-B", -141},
                                           Mistake{"ABCDEFGHIJKLM", -144}, Mistake{"'a", -151},
                                           Mistake{"#15abcd", -161}, Mistake{"(1", -171}),
                         [](const auto& row) { return "Minus" + std::to_string(-row.param.error); });

TEST_F(Parameter, CharacterDataAndSuffixMayHaveTwelveCharacters)
{
    parameters("ABCDEFGHIJKL,1 ABCDEFGHIJKL");
    EXPECT_TRUE(next());
    EXPECT_TRUE(next());
}

TEST_F(Parameter, IsNumberDistinguishesTheKinds)
{
    parameters("1,#HA,#Q7,#B1,1V,A,'1',#11A,(1)");
    for (const bool expected : {true, true, true, true, false, false, false, false, false}) {
        ASSERT_TRUE(next());
        EXPECT_TRUE(SCPI_ParamIsValid(&element));
        EXPECT_EQ(SCPI_ParamIsNumber(&element, false), expected) << text();
        EXPECT_EQ(SCPI_ParamIsNumber(&element, true), expected || element.type == SCPI_TOKEN_DECIMAL_SUFFIX);
    }
    const scpi_parameter_t none{};
    EXPECT_FALSE(SCPI_ParamIsNumber(&none, true));
}

/* ParamBool */

struct BoolRow {
    const char* text;
    bool read;
    bool value;
    int error;
};

class ParamBool : public ScpiData, public ::testing::WithParamInterface<BoolRow> {};

TEST_P(ParamBool, TakesWordsAndNumbers)
{
    parameters(GetParam().text);
    scpi_bool_t value = !GetParam().value;
    EXPECT_EQ(SCPI_ParamBool(&context, &value, true), GetParam().read);
    EXPECT_EQ(value, GetParam().value);
    EXPECT_EQ(error(), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Each, ParamBool,
    ::testing::Values(BoolRow{"ON", true, true, 0}, BoolRow{"on", true, true, 0},
                      BoolRow{"OFF", true, false, 0}, BoolRow{"oFf", true, false, 0},
                      BoolRow{"1", true, true, 0}, BoolRow{"0", true, false, 0}, BoolRow{"-2", true, true, 0},
                      BoolRow{"0.4", true, false, 0}, BoolRow{"0.5", true, true, 0},
                      BoolRow{"-0.4", true, false, 0}, BoolRow{"1E30", true, true, 0},
                      BoolRow{"0E30", true, false, 0}, BoolRow{"#H10", true, true, 0},
                      BoolRow{"#B000", true, false, 0}, BoolRow{"#HFFFFFFFFFFFFFFFFFF", true, true, 0},
                      BoolRow{"OF", false, false, -224}, BoolRow{"TRUE", false, false, -224},
                      BoolRow{"'ON'", false, false, -104}, BoolRow{"1V", false, false, -104},
                      BoolRow{"(1)", false, false, -104}, BoolRow{"#11A", false, false, -104},
                      BoolRow{"1E99999", false, false, -123}, BoolRow{"", false, false, -109}));

/* ParamChoice */

struct ChoiceRow {
    const char* text;
    int tag; // 0 when refused
    int error;
};

class ParamChoice : public ScpiData, public ::testing::WithParamInterface<ChoiceRow> {};

TEST_P(ParamChoice, MatchesShortAndLongForm)
{
    parameters(GetParam().text);
    int32_t tag = 77;
    EXPECT_EQ(SCPI_ParamChoice(&context, kSources, &tag, true), GetParam().error == 0);
    EXPECT_EQ(tag, GetParam().tag);
    EXPECT_EQ(error(), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Each, ParamChoice,
    ::testing::Values(ChoiceRow{"INT", 1, 0}, ChoiceRow{"int", 1, 0}, ChoiceRow{"INTERNAL", 1, 0},
                      ChoiceRow{"Internal", 1, 0}, ChoiceRow{"EXT", 2, 0}, ChoiceRow{"CHAN1", 3, 0},
                      ChoiceRow{"CHANNEL1", 3, 0}, ChoiceRow{"ch1", 4, 0}, ChoiceRow{"MANUAL", 5, 0},
                      ChoiceRow{"4WIRE", 6, 0}, ChoiceRow{"4w", 6, 0}, ChoiceRow{"IN", 0, -224},
                      ChoiceRow{"INTE", 0, -224}, ChoiceRow{"INTERNALS", 0, -224}, ChoiceRow{"CHAN", 0, -224},
                      ChoiceRow{"MAN", 0, -224}, ChoiceRow{"IMM", 0, -224}, ChoiceRow{"1", 0, -224},
                      ChoiceRow{"4V", 0, -224}, ChoiceRow{"'INT'", 0, -104}, ChoiceRow{"(1)", 0, -104},
                      ChoiceRow{"#13INT", 0, -104}, ChoiceRow{"#H1", 0, -224}, ChoiceRow{"", 0, -109}));

class ParamChoiceOfNumbers : public ScpiData, public ::testing::WithParamInterface<ChoiceRow> {};

TEST_P(ParamChoiceOfNumbers, MatchesEveryFormOfTheWholeNumber)
{
    parameters(GetParam().text);
    int32_t tag = 77;
    EXPECT_EQ(SCPI_ParamChoice(&context, kNumbered, &tag, true), GetParam().error == 0);
    EXPECT_EQ(tag, GetParam().tag);
    EXPECT_EQ(error(), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Each, ParamChoiceOfNumbers,
    ::testing::Values(ChoiceRow{"1", 1, 0}, ChoiceRow{"2", 2, 0}, ChoiceRow{"CH2", 2, 0},
                      ChoiceRow{"+2", 2, 0}, ChoiceRow{"02", 2, 0}, ChoiceRow{"2.000", 2, 0},
                      ChoiceRow{"2E0", 2, 0}, ChoiceRow{"0.2E1", 2, 0}, ChoiceRow{"0", 0, 0},
                      ChoiceRow{"-0", 0, 0}, ChoiceRow{"-1.0", 0, -224}, ChoiceRow{"1.5", 0, -224},
                      ChoiceRow{"0.2", 0, -224}, ChoiceRow{"3", 0, -224}, ChoiceRow{"12", 0, -224},
                      ChoiceRow{"-2", 0, -224}, ChoiceRow{"2V", 0, -224}, ChoiceRow{"CH3", 0, -224},
                      ChoiceRow{"1E300", 0, -224}, ChoiceRow{"18446744073709551618", 0, -224}));

TEST_F(Parameter, OptionalChoiceThatIsAbsentIsNoError)
{
    parameters("");
    int32_t tag = 77;
    EXPECT_FALSE(SCPI_ParamChoice(&context, kSources, &tag, false));
    EXPECT_EQ(error(), 0);
}

TEST(ChoiceToName, ReturnsTheFirstEntryWithTheTagAsTheListSpellsIt)
{
    const char* name = nullptr;
    EXPECT_TRUE(SCPI_ChoiceToName(kSources, 1, &name));
    EXPECT_STREQ(name, "INTernal");
    EXPECT_TRUE(SCPI_ChoiceToName(kNumbered, 1, &name));
    EXPECT_STREQ(name, "CH1");
    EXPECT_TRUE(SCPI_ChoiceToName(kNumbered, 0, &name));
    EXPECT_STREQ(name, "NONE");
}

TEST(ChoiceToName, OfATagThatTheListDoesNotHaveFails)
{
    const char* name = "x";
    EXPECT_FALSE(SCPI_ChoiceToName(kSources, 99, &name));
    EXPECT_EQ(name, nullptr);
    EXPECT_FALSE(SCPI_ChoiceToName(kSources, -1, &name));
}

/* ParamCharacters */

TEST_F(Parameter, CharactersPointAtWordsAndInsideOfStrings)
{
    parameters("ABC,'a\"b',\"a\"\"b\"");
    const char* data = nullptr;
    size_t len = 0;
    ASSERT_TRUE(SCPI_ParamCharacters(&context, &data, &len, true));
    EXPECT_EQ(std::string(data, len), "ABC");
    ASSERT_TRUE(SCPI_ParamCharacters(&context, &data, &len, true));
    EXPECT_EQ(std::string(data, len), "a\"b");
    ASSERT_TRUE(SCPI_ParamCharacters(&context, &data, &len, true));
    EXPECT_EQ(std::string(data, len), "a\"\"b");
    EXPECT_FALSE(SCPI_ParamCharacters(&context, &data, &len, true));
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(len, 0u);
    EXPECT_EQ(error(), -109);
}

/* ParamCopyText */

struct CopyRow {
    std::string text;
    std::string copy;
    int error;
};

class ParamCopyText : public ScpiData, public ::testing::WithParamInterface<CopyRow> {};

TEST_P(ParamCopyText, TakesQuotedAndUnquotedText)
{
    parameters(GetParam().text);
    char buffer[32] = "old";
    size_t len = 99;
    EXPECT_EQ(SCPI_ParamCopyText(&context, buffer, sizeof buffer, &len, true), GetParam().error == 0);
    EXPECT_EQ(error(), GetParam().error);
    EXPECT_EQ(std::string(buffer, len), GetParam().copy);
    EXPECT_EQ(buffer[len], '\0');
}

INSTANTIATE_TEST_SUITE_P(
    Each, ParamCopyText,
    ::testing::Values(CopyRow{"\"192.168.0.5\"", "192.168.0.5", 0},
                      CopyRow{"'192.168.0.5'", "192.168.0.5", 0}, CopyRow{"192.168.0.5", "192.168.0.5", 0},
                      CopyRow{" 192.168.0.5 ", "192.168.0.5", 0}, CopyRow{"192.168.0.5,1", "192.168.0.5", 0},
                      CopyRow{"300.1.1.1", "300.1.1.1", 0},
                      CopyRow{"orvan-3.lab.local", "orvan-3.lab.local", 0},
                      CopyRow{"a_host_name_of_30_characters_x", "a_host_name_of_30_characters_x", 0},
                      CopyRow{"/home/a-b/c.txt", "/home/a-b/c.txt", 0}, CopyRow{"25", "25", 0},
                      CopyRow{"1E3 ", "1E3", 0}, CopyRow{"-", "-", 0}, CopyRow{"@home", "@home", 0},
                      CopyRow{"00:1A:2B", "00:1A:2B", 0}, CopyRow{"a#1b(c)", "a#1b(c)", 0},
                      CopyRow{"fe80::1%eth0", "fe80::1%eth0", 0}, CopyRow{"\xC3\xA9", "\xC3\xA9", 0},
                      CopyRow{"\"\"", "", 0}, CopyRow{"''", "", 0}, CopyRow{"\"a\"\"b\"", "a\"b", 0},
                      CopyRow{"'a''b'", "a'b", 0}, CopyRow{"'a\"\"b'", "a\"\"b", 0}, CopyRow{"''''", "'", 0},
                      CopyRow{"\"a, b;c\" ,1", "a, b;c", 0}, CopyRow{"' x '", " x ", 0},
                      CopyRow{"'a\0b'"s, "a\0b"s, 0},

                      CopyRow{"", "", -109}, CopyRow{",1", "", -102}, CopyRow{"my host", "", -103},
                      CopyRow{"ab\"c\"", "", -151}, CopyRow{"ab'", "", -151}, CopyRow{"\"abc", "", -151},
                      CopyRow{"'", "", -151}, CopyRow{"#13abc", "", -168}, CopyRow{"#15abc", "", -161},
                      CopyRow{"#H1F", "", -128}, CopyRow{"(abc)", "", -178}, CopyRow{"(abc", "", -171}));

TEST_F(Parameter, CopyTextIsFollowedByTheNextParameter)
{
    parameters("2 , 10.0.0.1 , 'x' , 5");
    char buffer[32];
    int32_t number = 0;
    ASSERT_TRUE(SCPI_ParamInt32(&context, &number, true));
    ASSERT_TRUE(SCPI_ParamCopyText(&context, buffer, sizeof buffer, nullptr, true));
    EXPECT_STREQ(buffer, "10.0.0.1");
    ASSERT_TRUE(SCPI_ParamCopyText(&context, buffer, sizeof buffer, nullptr, true));
    EXPECT_STREQ(buffer, "x");
    ASSERT_TRUE(SCPI_ParamInt32(&context, &number, true));
    EXPECT_EQ(number, 5);
    EXPECT_EQ(context.input_count, 4);
    EXPECT_EQ(unread(), "");
}

TEST_F(Parameter, CopyTextOfAnAbsentOptionalIsNoError)
{
    parameters("");
    char buffer[4] = "old";
    size_t len = 9;
    EXPECT_FALSE(SCPI_ParamCopyText(&context, buffer, sizeof buffer, &len, false));
    EXPECT_EQ(error(), 0);
    EXPECT_EQ(len, 0u);
    EXPECT_STREQ(buffer, "");
}

TEST_F(Parameter, CopyTextFillsTheBufferButForTheNul)
{
    for (const char* text : {"abc", "'abc'"}) {
        parameters(text);
        char buffer[5] = "wxyz";
        size_t len = 0;
        EXPECT_TRUE(SCPI_ParamCopyText(&context, buffer, 4, &len, true));
        EXPECT_EQ(len, 3u);
        EXPECT_EQ(std::string(buffer, 5), "abc\0\0"s);
    }
}

TEST_F(Parameter, CopyTextThatIsTooLongIsMinus223AndLeavesTheBufferEmpty)
{
    for (const char* text : {"abcd", "'abcd'", "'abcdefghijklmnop'"}) {
        parameters(text);
        char buffer[6] = "vwxyz";
        size_t len = 9;
        EXPECT_FALSE(SCPI_ParamCopyText(&context, buffer, 4, &len, true));
        EXPECT_EQ(error(), -223);
        EXPECT_EQ(len, 0u);
        EXPECT_STREQ(buffer, "");
        EXPECT_STREQ(buffer + 4, "z") << "written past the buffer";
        EXPECT_EQ(unread(), "");
    }
}

TEST_F(Parameter, CopyTextCountsADoubledQuoteOnce)
{
    parameters("'a''b'");
    char buffer[4];
    EXPECT_TRUE(SCPI_ParamCopyText(&context, buffer, sizeof buffer, nullptr, true));
    EXPECT_STREQ(buffer, "a'b");
}

TEST_F(Parameter, CopyTextIntoNoBufferIsMinus223)
{
    parameters("''");
    char untouched = 'x';
    EXPECT_FALSE(SCPI_ParamCopyText(&context, &untouched, 0, nullptr, true));
    EXPECT_EQ(untouched, 'x');
    EXPECT_EQ(error(), -223);
}

/* ParamArbitraryBlock */

TEST_F(Parameter, BlockPointsAtItsBytesInTheInput)
{
    parameters("#15a,;\n\0 , 7"s);
    const char* data = nullptr;
    size_t len = 0;
    ASSERT_TRUE(SCPI_ParamArbitraryBlock(&context, &data, &len, true));
    EXPECT_EQ(std::string(data, len), "a,;\n\0"s);
    EXPECT_EQ(data, context.param_list.lex_state.buffer + 3);
    int32_t number = 0;
    EXPECT_TRUE(SCPI_ParamInt32(&context, &number, true));
    EXPECT_EQ(number, 7);
}

TEST_F(Parameter, IndefiniteBlockRunsToTheEnd)
{
    parameters("#0ab,c;d ");
    const char* data = nullptr;
    size_t len = 0;
    ASSERT_TRUE(SCPI_ParamArbitraryBlock(&context, &data, &len, true));
    EXPECT_EQ(std::string(data, len), "ab,c;d ");
    EXPECT_EQ(unread(), "");
}

TEST_F(Parameter, EmptyBlockIsABlock)
{
    parameters("#10");
    const char* data = nullptr;
    size_t len = 9;
    ASSERT_TRUE(SCPI_ParamArbitraryBlock(&context, &data, &len, true));
    EXPECT_NE(data, nullptr);
    EXPECT_EQ(len, 0u);
}

struct NotABlock : ScpiData, ::testing::WithParamInterface<Mistake> {};

TEST_P(NotABlock, ReportsTheNumberOfItsKindAndNothingElse)
{
    parameters(GetParam().text);
    const char* data = "x";
    size_t len = 9;
    EXPECT_FALSE(SCPI_ParamArbitraryBlock(&context, &data, &len, true));
    EXPECT_EQ(error(), GetParam().error);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(len, 0u);
}

INSTANTIATE_TEST_SUITE_P(Each, NotABlock,
                         ::testing::Values(Mistake{"", -109}, Mistake{"12", -128}, Mistake{"#HFF", -128},
                                           Mistake{"#Q7", -128}, Mistake{"#B1", -128}, Mistake{"1V", -138},
                                           Mistake{"ABC", -148}, Mistake{"'a'", -158}, Mistake{"\"a\"", -158},
                                           Mistake{"(1)", -178}, Mistake{"#212abc", -161}));

TEST_F(Parameter, BlockWhereAWordIsWantedIsMinus168)
{
    parameters("#11A");
    const char* data = "x";
    size_t len = 9;
    EXPECT_FALSE(SCPI_ParamCharacters(&context, &data, &len, true));
    EXPECT_EQ(error(), -168);
    EXPECT_EQ(data, nullptr);
}

/* All readers */

TEST_F(Parameter, ReadersEndAndStayInsideTheTextWhateverItHolds)
{
    static constexpr char kAlphabet[] = "0129AEeHQB+-.#,;'\"() \t\n/_:@\x80";
    const auto bool_reader = [](scpi_t* c) {
        scpi_bool_t value;
        return SCPI_ParamBool(c, &value, false);
    };
    const auto choice_reader = [](scpi_t* c) {
        int32_t value;
        return SCPI_ParamChoice(c, kNumbered, &value, false);
    };
    const auto integer_reader = [](scpi_t* c) {
        int64_t value;
        return SCPI_ParamInt64(c, &value, false);
    };
    const auto number_reader = [](scpi_t* c) {
        scpi_number_t value;
        return SCPI_ParamNumber(c, scpi_special_numbers_def, &value, false);
    };
    const auto text_reader = [](scpi_t* c) {
        char text[4];
        return SCPI_ParamCopyText(c, text, sizeof text, nullptr, false);
    };
    const auto block_reader = [](scpi_t* c) {
        const char* data;
        size_t len;
        return SCPI_ParamArbitraryBlock(c, &data, &len, false);
    };
    const auto element_reader = [](scpi_t* c) {
        scpi_parameter_t value;
        return SCPI_Parameter(c, &value, false);
    };
    using Reader = bool (*)(scpi_t*);
    const Reader readers[] = {bool_reader, choice_reader, integer_reader, number_reader,
                              text_reader, block_reader,  element_reader};

    uint32_t random = 2463534242u;
    const auto next_random = [&random] {
        random ^= random << 13;
        random ^= random >> 17;
        random ^= random << 5;
        return random;
    };
    for (int i = 0; i < 20000; ++i) {
        std::string line(next_random() % 24, ' ');
        for (char& c : line) {
            c = kAlphabet[next_random() % (sizeof kAlphabet)];
        }
        for (const Reader reader : readers) {
            parameters(line);
            size_t read = 0;
            while (reader(&context)) {
                ASSERT_LE(unread().size(), line.size());
                ASSERT_LE(++read, line.size()) << line;
            }
            ASSERT_LE(unread().size(), line.size()) << line;
            ASSERT_LE(errors.size(), 1u) << line;
        }
    }
}

} // namespace
