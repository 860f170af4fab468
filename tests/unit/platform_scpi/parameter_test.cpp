// Parameters in general: order, kinds and errors.
#include <string>

#include "parameter_fixture.h"

namespace {

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

TEST_F(Parameter, NothingLeftCountsAsTheEnd)
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

/* All readers */

TEST_F(Parameter, ReadersNeverLeaveTheTextWhateverItHolds)
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
