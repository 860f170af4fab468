#include "parser_fixture.h"

namespace {

using std::string;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::string_literals;

using R = RecordingContext;

class Parser : public ParserFixture {};

// Units and their headers

TEST_F(Parser, HeaderAndParametersReachTheHandler)
{
    EXPECT_THAT(run(":SOUR:FREQ 100"), ElementsAre("call :SOUR:FREQ [100]"));
    EXPECT_THAT(run(":SOUR:FREQ?"), ElementsAre("call :SOUR:FREQ? []"));
    EXPECT_THAT(run("*IDN?"), ElementsAre("call *IDN? []"));
}

TEST_F(Parser, HeaderIsPassedAsTheClientWroteIt)
{
    EXPECT_THAT(run(":sOuRcE:freq 1"), ElementsAre("call :sOuRcE:freq [1]"));
}

TEST_F(Parser, QueryAndSetRowAreDifferentRows)
{
    std::vector<int32_t> tags;
    m_context.in_handler = [&](scpi_t* c) { tags.push_back(SCPI_CmdTag(c)); };
    run(":SOUR:FREQ 1;FREQ?");
    EXPECT_THAT(tags, ElementsAre(11, 12));
}

TEST_F(Parser, UnitsRunInOrder)
{
    EXPECT_THAT(run(":A 1;:B 2;:A 3"), ElementsAre("call :A [1]", "call :B [2]", "call :A [3]"));
}

TEST_F(Parser, EmptyUnitsAreSkipped)
{
    EXPECT_THAT(run(""), IsEmpty());
    EXPECT_THAT(run("  \t "), IsEmpty());
    EXPECT_THAT(run(";"), IsEmpty());
    EXPECT_THAT(run(";; ;:A 1; ;;:B;"), ElementsAre("call :A [1]", "call :B []"));
}

TEST_F(Parser, WhiteSpaceAroundUnitsAndParametersIsLeftOut)
{
    EXPECT_THAT(run(" \t:A \t 1 , 2 \t ; :B \t"), ElementsAre("call :A [1 , 2]", "call :B []"));
}

TEST_F(Parser, EveryControlCharacterButLineFeedIsWhiteSpace)
{
    for (int code = 0; code <= 32; ++code) {
        if (code == '\n') {
            continue;
        }
        const string space(1, static_cast<char>(code));
        EXPECT_THAT(run(space + ":A" + space + "1" + space + ";" + space + ":B" + space),
                    ElementsAre("call :A [1]", "call :B []"))
            << code;
    }
}

TEST_F(Parser, CarriageReturnBeforeTheLineFeedIsNoParameter)
{
    EXPECT_THAT(run(":A 1\r"), ElementsAre("call :A [1]"));
    EXPECT_THAT(run("*IDN?\r"), ElementsAre("call *IDN? []"));
    EXPECT_THAT(run("\r"), IsEmpty());
}

TEST_F(Parser, LoneCarriageReturnInALineIsWhiteSpace)
{
    EXPECT_THAT(run(":A\r1\r;\r:B"), ElementsAre("call :A [1]", "call :B []"));
    EXPECT_THAT(run(":A 1\r2"), ElementsAre("call :A [1\\r2]"));
}

// Compound headers, SCPI-99 6.2.4

TEST_F(Parser, RelativeHeaderContinuesInThePreviousPath)
{
    EXPECT_THAT(run(":SOUR:FREQ 1;POW 2"), ElementsAre("call :SOUR:FREQ [1]", "call :SOUR:POW [2]"));
}

TEST_F(Parser, PathIsEveryNodeButTheLast)
{
    EXPECT_THAT(run(":SOUR:POW:LEV:IMM 1;LIM 2;LIM 3"),
                ElementsAre("call :SOUR:POW:LEV:IMM [1]", "call :SOUR:POW:LEV:LIM [2]",
                            "call :SOUR:POW:LEV:LIM [3]"));
}

TEST_F(Parser, RelativeHeaderWithNodesMovesThePathDown)
{
    EXPECT_THAT(
        run(":SOUR:FREQ 1;POW:LEV:IMM 2;LIM 3"),
        ElementsAre("call :SOUR:FREQ [1]", "call :SOUR:POW:LEV:IMM [2]", "call :SOUR:POW:LEV:LIM [3]"));
}

TEST_F(Parser, AbsoluteHeaderStartsAtTheRoot)
{
    EXPECT_THAT(run(":SOUR:FREQ 1;:A 2;B 3"),
                ElementsAre("call :SOUR:FREQ [1]", "call :A [2]", "call :B [3]"));
}

TEST_F(Parser, FirstHeaderWithoutColonStaysAsWritten)
{
    EXPECT_THAT(run("A 1;B 2"), ElementsAre("call A [1]", "call B [2]"));
    EXPECT_THAT(run("SOUR:FREQ 1;POW 2"), ElementsAre("call SOUR:FREQ [1]", "call SOUR:POW [2]"));
}

TEST_F(Parser, CommonCommandLeavesThePathAlone)
{
    EXPECT_THAT(run(":SOUR:FREQ 1;*CLS;POW 2;*IDN?;*CLS;FREQ?"),
                ElementsAre("call :SOUR:FREQ [1]", "call *CLS []", "call :SOUR:POW [2]", "call *IDN? []",
                            "call *CLS []", "call :SOUR:FREQ? []"));
}

TEST_F(Parser, EmptyUnitLeavesThePathAlone)
{
    EXPECT_THAT(run(":SOUR:FREQ 1;; ;POW 2"), ElementsAre("call :SOUR:FREQ [1]", "call :SOUR:POW [2]"));
}

TEST_F(Parser, UndefinedHeaderSetsThePathToo)
{
    EXPECT_THAT(run(":SOUR:FOO 1;POW 2"), ElementsAre("error -113", "call :SOUR:POW [2]"));
}

TEST_F(Parser, BrokenHeaderLeavesThePathAlone)
{
    EXPECT_THAT(run(":SOUR:FREQ 1;:!;POW 2"),
                ElementsAre("call :SOUR:FREQ [1]", "error -101", "call :SOUR:POW [2]"));
}

TEST_F(Parser, PathEndsWithItsMessage)
{
    run(":SOUR:FREQ 1");
    EXPECT_THAT(run("POW 2"), ElementsAre("error -113"));
    m_context.input(":SOUR:FREQ 1\nPOW 2\n");
    EXPECT_THAT(m_context.take_events(),
                ElementsAre("call :SOUR:FREQ [1]", kLineEnd, "flush", "error -113", kLineEnd, "flush"));
}

TEST_F(Parser, HeaderIsComposedRightBeforeTheClientsSeparator)
{
    std::vector<string> seen;
    m_context.in_handler = [&](scpi_t* c) {
        const scpi_const_buffer_t& header = c->param_list.cmd_raw;
        const lex_state_t& lex = c->param_list.lex_state;
        EXPECT_GE(header.data, c->buffer.data);
        EXPECT_LE(lex.buffer + lex.len, c->buffer.data + c->buffer.position);
        seen.push_back(R::escaped({header.data, static_cast<size_t>(lex.buffer + lex.len - header.data)}));
    };
    run(":SOUR:FREQ 1;POW 2");
    run(":SOUR:POW:LEV:IMM;LIM\t  33");
    run(":A;B;A;B;A;*CLS;B 7");
    run(":SOUR:POW:LEV:IMM;*CLS;*CLS;;LIM");
    EXPECT_THAT(seen, ElementsAre(":SOUR:FREQ 1", ":SOUR:POW 2", ":SOUR:POW:LEV:IMM",
                                  ":SOUR:POW:LEV:LIM\\x09  33", ":A", ":B", ":A", ":B", ":A", "*CLS", ":B 7",
                                  ":SOUR:POW:LEV:IMM", "*CLS", "*CLS", ":SOUR:POW:LEV:LIM"));
}

TEST_F(Parser, LongChainOfRelativeHeadersKeepsItsPath)
{
    string line = ":SOUR:POW:LEV:IMM";
    std::vector<string> expected{"call :SOUR:POW:LEV:IMM []"};
    for (int i = 0; i < 500; ++i) {
        line += i % 3 == 0 ? ";LIM" : ";IMM";
        expected.emplace_back(i % 3 == 0 ? "call :SOUR:POW:LEV:LIM []" : "call :SOUR:POW:LEV:IMM []");
    }
    EXPECT_EQ(run(line), expected);
}

TEST_F(Parser, LaterUnitsAreIntactWhileAnEarlierOneRuns)
{
    std::vector<string> rest;
    m_context.in_handler = [&](scpi_t* c) {
        const lex_state_t& lex = c->param_list.lex_state;
        const char* const tail = lex.buffer + lex.len;
        rest.push_back(R::escaped({tail, static_cast<size_t>(c->buffer.data + c->buffer.position - tail)}));
    };
    m_context.input(":SOUR:FREQ 1; POW 2 ;POW 3\r\n:A\n");
    EXPECT_THAT(rest, ElementsAre("; POW 2 ;POW 3\\r\\n", " ;POW 3\\r\\n", "\\r\\n", "\\n"));
}

// What a handler finds

TEST_F(Parser, ParametersStartAfterTheHeaderWhenThereAreNone)
{
    m_context.in_handler = [](scpi_t* c) {
        EXPECT_EQ(c->param_list.lex_state.buffer, c->param_list.cmd_raw.data + c->param_list.cmd_raw.length);
        EXPECT_EQ(c->param_list.lex_state.len, 0u);
    };
    EXPECT_THAT(run(":A;:A  ;:SOUR:FREQ?;*CLS\r"),
                ElementsAre("call :A []", "call :A []", "call :SOUR:FREQ? []", "call *CLS []"));
}

TEST_F(Parser, ReadingStartsAtTheFirstParameter)
{
    scpi_command_t commands[] = {{":X",
                                  [](scpi_t* c) {
                                      EXPECT_EQ(c->param_list.lex_state.pos, c->param_list.lex_state.buffer);
                                      R::of(c).note("checked");
                                      return R::handle(c);
                                  },
                                  1},
                                 {nullptr, nullptr, 0}};
    RecordingContext context(commands);
    context.input(":X 12,13;X;X 'a'\n");
    EXPECT_EQ(context.count("checked"), 3u);
}

TEST_F(Parser, CountsOfTheCommandAreReset)
{
    m_context.in_handler = [](scpi_t* c) {
        EXPECT_EQ(c->input_count, 0);
        EXPECT_EQ(c->output_count, 0);
        EXPECT_EQ(c->arbitrary_remaining, 0u);
        EXPECT_FALSE(c->cmd_error);
        c->input_count = c->output_count = 7;
        c->arbitrary_remaining = 7;
        c->cmd_error = true;
    };
    EXPECT_THAT(run(":A;:B;:A"), ElementsAre("call :A []", "call :B []", "call :A []"));
    EXPECT_EQ(context().arbitrary_remaining, 0u);
}

TEST_F(Parser, TagIsThatOfTheRowAndZeroOutsideACommand)
{
    EXPECT_EQ(SCPI_CmdTag(&context()), 0);
    int32_t tag = 0;
    m_context.in_handler = [&](scpi_t* c) { tag = SCPI_CmdTag(c); };
    m_context.in_flush = [](scpi_t* c) { EXPECT_EQ(SCPI_CmdTag(c), 0); };
    run(":OUTP:STAT?");
    EXPECT_EQ(tag, 18);
    EXPECT_EQ(SCPI_CmdTag(&context()), 0);
}

TEST_F(Parser, IsCmdMatchesTheHeaderOfTheCommand)
{
    EXPECT_FALSE(SCPI_IsCmd(&context(), ":SOURce:POWer"));
    int calls = 0;
    m_context.in_handler = [&](scpi_t* c) {
        if (++calls == 1) {
            return;
        }
        EXPECT_TRUE(SCPI_IsCmd(c, ":SOURce:POWer"));
        EXPECT_FALSE(SCPI_IsCmd(c, ":SOURce:POWer?"));
        EXPECT_FALSE(SCPI_IsCmd(c, ":SOURce:FREQuency"));
    };
    run(":SOUR:FREQ 1;POW 2");
    EXPECT_EQ(calls, 2);
    EXPECT_FALSE(SCPI_IsCmd(&context(), ":SOURce:POWer"));
}

TEST_F(Parser, ResultsAreWrittenWithoutAUnitSeparator)
{
    EXPECT_THAT(run(":ANSW?;ANSW?"), ElementsAre("write \"42\"", "write \"42\""));
}

// Where a unit ends

TEST_F(Parser, SemicolonInAStringIsData)
{
    EXPECT_THAT(run(":A \"1;2\";:B"), ElementsAre("call :A [\"1;2\"]", "call :B []"));
    EXPECT_THAT(run(":A '1;\"2';:B"), ElementsAre("call :A ['1;\"2']", "call :B []"));
    EXPECT_THAT(run(":A 'it'';s';:B"), ElementsAre("call :A ['it'';s']", "call :B []"));
    EXPECT_THAT(run(":A 1,\"a\";:B"), ElementsAre("call :A [1,\"a\"]", "call :B []"));
}

TEST_F(Parser, SemicolonInAnExpressionIsData)
{
    EXPECT_THAT(run(":A (@1;(2;3));:B"), ElementsAre("call :A [(@1;(2;3))]", "call :B []"));
    EXPECT_THAT(run(":A (@\")\";1);:B"), ElementsAre("call :A [(@\")\";1)]", "call :B []"));
}

TEST_F(Parser, SemicolonAndLineFeedInADefiniteBlockAreData)
{
    EXPECT_THAT(run(":DATA #15\n;\"'\n;:B"), ElementsAre("call :DATA [#15\\n;\"'\\n]", "call :B []"));
    EXPECT_THAT(run(":DATA 1,#13;;;,#11;;:B"), ElementsAre("call :DATA [1,#13;;;,#11;]", "call :B []"));
}

TEST_F(Parser, WhiteSpaceThatEndsABlockIsData)
{
    EXPECT_THAT(run(":DATA #13a \r \t;:B"), ElementsAre("call :DATA [#13a \\r]", "call :B []"));
    EXPECT_THAT(run(":DATA #12 \r\r"), ElementsAre("call :DATA [#12 \\r]"));
    EXPECT_THAT(run(":DATA #11\r"), ElementsAre("call :DATA [#11\\r]"));
    EXPECT_THAT(run(":DATA #12\n\n"), ElementsAre("call :DATA [#12\\n\\n]"));
    EXPECT_THAT(run(":DATA #12  , 1  "), ElementsAre("call :DATA [#12  , 1]"));
}

TEST_F(Parser, IndefiniteBlockExtendsToTheLineEnd)
{
    EXPECT_THAT(run(":DATA #0a;:B \t"), ElementsAre("call :DATA [#0a;:B \\x09]"));
    EXPECT_THAT(run(":DATA #0a\r"), ElementsAre("call :DATA [#0a]"));
    EXPECT_THAT(run(":DATA #0a\r\r"), ElementsAre("call :DATA [#0a\\r]"));
    EXPECT_THAT(run(":DATA #0"), ElementsAre("call :DATA [#0]"));
}

TEST_F(Parser, NulInALineDoesNotEndIt)
{
    EXPECT_THAT(run(":A \0 1\0;\0:B '\0'"s), ElementsAre("call :A [1]", "call :B ['\\x00']"));
}

TEST_F(Parser, HugeLineRunsLikeAShortOne)
{
    RecordingContext big(kParserCommands, 4u << 20);
    string numbers = "1";
    while (numbers.size() < 3000000) {
        numbers += ",2.5";
    }
    ASSERT_TRUE(big.input(":A " + numbers + ";:B\n"));
    EXPECT_THAT(big.take_events(), ElementsAre("call :A [" + numbers + "]", "call :B []", kLineEnd, "flush"));
}

TEST_F(Parser, VeryManyUnitsRun)
{
    RecordingContext big(kParserCommands, 4u << 20);
    string line;
    for (int i = 0; i < 100000; ++i) {
        line += ":A;B;";
    }
    ASSERT_TRUE(big.input(line + "\n"));
    EXPECT_EQ(big.count("call :A []"), 100000u);
    EXPECT_EQ(big.count("call :B []"), 100000u);
}

} // namespace
