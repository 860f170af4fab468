#include "parser_fixture.h"

namespace {

using testing::ElementsAre;

class ParserErrors : public ParserFixture {};

TEST_F(ParserErrors, UndefinedHeaderReports113)
{
    expect_error(":FOO", -113);
    expect_error("FOO 1", -113);
    expect_error("*FOO", -113);
    expect_error(":SOUR", -113);
    expect_error(":SOUR:FREQ:FOO", -113);
    expect_error("*IDN", -113);
    expect_error("*CLS?", -113);
}

TEST_F(ParserErrors, LaterUnitsRunAfterAnUndefinedHeader)
{
    EXPECT_THAT(run(":A 1;:FOO;:B 2"), ElementsAre("call :A [1]", "error -113", "call :B [2]"));
}

TEST_F(ParserErrors, InvalidCharacterInAHeaderReports101)
{
    expect_error(":FR&EQ 1", -101);
    expect_error("!A", -101);
    expect_error("@", -101);
    expect_error(":A$ 1", -101);
    expect_error(":\xc3\xa4 1", -101);
    expect_error(":SOUR:%", -101);
    expect_error("\x7f", -101);
}

TEST_F(ParserErrors, DataInPlaceOfAHeaderReports102)
{
    expect_error("123", -102);
    expect_error("\"A\"", -102);
    expect_error("'A;B'", -102);
    expect_error("#15hello", -102);
    expect_error("(@1)", -102);
    expect_error(",1", -102);
    expect_error("-1", -102);
    expect_error(".5", -102);
}

TEST_F(ParserErrors, HeaderWithAnEmptyOrInvalidMnemonicReports110)
{
    expect_error(":", -110);
    expect_error("*", -110);
    expect_error("?", -110);
    expect_error(": A", -110);
    expect_error(":A:", -110);
    expect_error(":A: 1", -110);
    expect_error("::A", -110);
    expect_error(":A::B", -110);
    expect_error(":*CLS", -110);
    expect_error("*:CLS", -110);
    expect_error(":1A", -110);
    expect_error(":_A", -110);
    expect_error("_A", -110);
    expect_error(":A:?", -110);
    expect_error(":'A'", -110);
}

TEST_F(ParserErrors, NoWhiteSpaceAfterTheHeaderReports111)
{
    expect_error(":A#15", -111);
    expect_error(":A,1", -111);
    expect_error(":A\"x\"", -111);
    expect_error(":A'x;y'", -111);
    expect_error(":A(1;2)", -111);
    expect_error(":A-1", -111);
    expect_error(":A.1", -111);
    expect_error("*CLS:A", -111);
    expect_error(":OUTP?1", -111);
    expect_error(":OUTP??", -111);
    expect_error(":OUTP?:STAT", -111);
    expect_error(":A*", -111);
}

TEST_F(ParserErrors, MnemonicOfMoreThanTwelveCharactersReports112)
{
    expect_error(":ABCDEFGHIJKLM", -112);
    expect_error(":SOUR:ABCDEFGHIJKLM:B?", -112);
    expect_error("*ABCDEFGHIJKLM", -112);
    expect_error(":ABCDEFGHIJKL", -113);
}

TEST_F(ParserErrors, LongMnemonicOfTheTableIsNoError)
{
    EXPECT_THAT(run(":LONGMNEMONIC13 1"), ElementsAre("call :LONGMNEMONIC13 [1]"));
}

TEST_F(ParserErrors, UnreadParametersReport108)
{
    EXPECT_THAT(run(":LEAV 1"), ElementsAre("call :LEAV", "error -108"));
    EXPECT_THAT(run(":LEAV"), ElementsAre("call :LEAV"));
    EXPECT_THAT(run(":LEAV  \r"), ElementsAre("call :LEAV"));
    EXPECT_THAT(run(":LEAV ,"), ElementsAre("call :LEAV", "error -108"));
}

TEST_F(ParserErrors, WhiteSpaceAfterTheReadParametersIsNotUnread)
{
    scpi_command_t commands[] = {{":X",
                                  [](scpi_t* c) {
                                      c->param_list.lex_state.pos += 1;
                                      return static_cast<scpi_result_t>(SCPI_RES_OK);
                                  },
                                  1},
                                 {nullptr, nullptr, 0}};
    RecordingContext context(commands);
    context.input(":X 1 \t\n");
    EXPECT_THAT(context.take_events(), ElementsAre(kLineEnd, "flush"));
    context.input(":X 1 2\n");
    EXPECT_THAT(context.take_events(), ElementsAre("error -108", kLineEnd, "flush"));
}

TEST_F(ParserErrors, FailureWithoutAnErrorReports200)
{
    EXPECT_THAT(run(":FAIL"), ElementsAre("call :FAIL", "error -200"));
    EXPECT_THAT(run(":FAIL 1"), ElementsAre("call :FAIL", "error -200"));
    EXPECT_THAT(run(":FAIL;:B"), ElementsAre("call :FAIL", "error -200", "call :B []"));
}

TEST_F(ParserErrors, ErrorOfTheHandlerIsTheOnlyOne)
{
    expect_error(":FAIL:ERR 1", -222);
    expect_error(":FAIL:OK 1", -222);
}

TEST_F(ParserErrors, ErrorOfOneUnitDoesNotHideThatOfTheNext)
{
    EXPECT_THAT(run(":FAIL:ERR;:FAIL;:LEAV 1;:FOO"), ElementsAre("error -222", "call :FAIL", "error -200",
                                                                 "call :LEAV", "error -108", "error -113"));
}

TEST_F(ParserErrors, RowWithoutAHandlerReports200)
{
    expect_error(":NOB", -200);
}

TEST_F(ParserErrors, OpenStringReports151AndRunsNothing)
{
    expect_error(":A \"open", -151);
    expect_error(":A 'open;:B", -151);
    expect_error(":A 1,'it''s", -151);
    expect_error(":A (@\"open)", -151);
    EXPECT_THAT(run(":B;:A \"open;:B"), ElementsAre("call :B []", "error -151"));
}

TEST_F(ParserErrors, OpenExpressionReports171AndRunsNothing)
{
    expect_error(":A (1,2", -171);
    expect_error(":A ((1);:B", -171);
}

TEST_F(ParserErrors, UndefinedHeaderIsReportedBeforeBrokenData)
{
    expect_error(":FOO \"open", -113);
    expect_error(":! \"open", -101);
}

} // namespace
