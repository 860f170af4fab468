#include <cstring>
#include <utility>

#include "parser_fixture.h"

namespace {

using std::string;
using testing::ElementsAre;
using testing::IsEmpty;

using R = RecordingContext;

class ParseCall : public ParserFixture {};

TEST_F(ParseCall, RunsAMessageWithoutLineEndAndFlush)
{
    string text = ":SOUR:FREQ 1;POW 2";
    EXPECT_TRUE(SCPI_Parse(&context(), text.data(), text.size()));
    EXPECT_THAT(m_context.take_events(), ElementsAre("call :SOUR:FREQ [1]", "call :SOUR:POW [2]"));
    text = ":FOO;:A\n";
    EXPECT_FALSE(SCPI_Parse(&context(), text.data(), text.size()));
    EXPECT_THAT(m_context.take_events(), ElementsAre("error -113", "call :A []"));
    EXPECT_TRUE(SCPI_Parse(&context(), text.data(), 0));
    EXPECT_THAT(m_context.take_events(), IsEmpty());
}

TEST_F(ParseCall, EndsAtTheLineFeed)
{
    string text = ":A 1\n:B 2\n";
    EXPECT_TRUE(SCPI_Parse(&context(), text.data(), text.size()));
    EXPECT_THAT(m_context.take_events(), ElementsAre("call :A [1]"));
}

TEST_F(ParseCall, Reports161ForABlockShorterThanItsHeaderSays)
{
    for (string text : {":DATA #15abc", ":DATA #3", ":DATA #3100abc", ":DATA 1,#15\n\n", ":DATA #15;;;;"}) {
        EXPECT_FALSE(SCPI_Parse(&context(), text.data(), text.size()));
        EXPECT_THAT(m_context.take_events(), ElementsAre("error -161")) << text;
    }
    string whole = ":DATA #15abc\n\n";
    EXPECT_TRUE(SCPI_Parse(&context(), whole.data(), whole.size()));
    EXPECT_THAT(m_context.take_events(), ElementsAre("call :DATA [#15abc\\n\\n]"));
}

TEST_F(ParseCall, LeavesThePartialMessageAlone)
{
    m_context.input(":A 1;:DATA #14\n");
    string text = ":B";
    EXPECT_TRUE(SCPI_Parse(&context(), text.data(), text.size()));
    EXPECT_TRUE(m_context.input("abc\n"));
    EXPECT_THAT(m_context.take_events(),
                ElementsAre("call :B []", "call :A [1]", "call :DATA [#14\\nabc]", kLineEnd, "flush"));
}

TEST_F(ParseCall, BoundsHandlersByItsOwnText)
{
    m_context.in_handler = [](scpi_t* c) {
        const lex_state_t& lex = c->param_list.lex_state;
        EXPECT_EQ(c->buffer.data + c->buffer.position - (lex.buffer + lex.len), 3);
    };
    string text = ":A 1 ;\n";
    EXPECT_TRUE(SCPI_Parse(&context(), text.data(), text.size()));
    EXPECT_THAT(m_context.take_events(), ElementsAre("call :A [1]"));
}

TEST_F(ParseCall, HandlerMayParseAndContinueItsOwnCommand)
{
    bool nested = false;
    m_context.in_handler = [&](scpi_t* c) {
        if (std::exchange(nested, true)) {
            return;
        }
        c->output_count = 3;
        string text = ":B 2;:OUTP?";
        EXPECT_TRUE(SCPI_Parse(c, text.data(), text.size()));
        EXPECT_EQ(SCPI_CmdTag(c), 28);
        EXPECT_EQ(R::header(c), ":A");
        EXPECT_EQ(R::parameters(c), "1");
        EXPECT_EQ(c->output_count, 3);
    };
    EXPECT_THAT(run(":A 1;:B"), ElementsAre("call :A [1]", "call :B [2]", "call :OUTP? []", "call :B []"));
}

TEST_F(ParseCall, ErrorOfANestedParseCountsForTheMessage)
{
    bool nested = false;
    m_context.in_handler = [&](scpi_t* c) {
        if (std::exchange(nested, true)) {
            return;
        }
        string text = ":FOO";
        EXPECT_FALSE(SCPI_Parse(c, text.data(), text.size()));
    };
    EXPECT_THAT(run(":A 1;:B"), ElementsAre("call :A [1]", "error -113", "call :B []"));
    EXPECT_FALSE(m_result);
}

TEST_F(ParseCall, ErrorOfANestedParseCountsForTheCommand)
{
    scpi_command_t commands[] = {{":OUTer",
                                  [](scpi_t* c) {
                                      string text = ":FOO";
                                      SCPI_Parse(c, text.data(), text.size());
                                      return static_cast<scpi_result_t>(SCPI_RES_ERR);
                                  },
                                  1},
                                 {nullptr, nullptr, 0}};
    RecordingContext context(commands);
    context.input(":OUT 1\n");
    EXPECT_THAT(context.take_events(), ElementsAre("error -113", kLineEnd, "flush"));
}

TEST(Context, InitNeedsNoClearedContext)
{
    scpi_t c;
    memset(static_cast<void*>(&c), 0xa5, sizeof c);
    char buffer[64];
    scpi_error_t errors[4];
    static const scpi_interface_t no_callbacks{};
    SCPI_Init(&c, kParserCommands, &no_callbacks, nullptr, "1", "2", "3", "4", buffer, sizeof buffer, errors,
              4);
    EXPECT_EQ(c.user_context, nullptr);
    EXPECT_EQ(c.cmdlist, kParserCommands);
    EXPECT_EQ(c.buffer.data, buffer);
    EXPECT_EQ(c.buffer.length, sizeof buffer);
    EXPECT_EQ(c.buffer.position, 0u);
    EXPECT_STREQ(c.idn[0], "1");
    EXPECT_STREQ(c.idn[3], "4");
    EXPECT_EQ(SCPI_ErrorCount(&c), 0);
    for (const scpi_reg_val_t value : c.registers) {
        EXPECT_EQ(value, 0);
    }
    EXPECT_FALSE(SCPI_Input(&c, ":FOO\n", 5));
    EXPECT_EQ(SCPI_ErrorCount(&c), 1);
    SCPI_Deinit(&c);
    EXPECT_EQ(SCPI_ErrorCount(&c), 0);
}

TEST(Context, MissingInterfaceDiscardsOutput)
{
    scpi_t c;
    char buffer[64];
    scpi_error_t errors[4];
    SCPI_Init(&c, kParserCommands, nullptr, nullptr, "1", "2", "3", "4", buffer, sizeof buffer, errors, 4);
    EXPECT_TRUE(SCPI_Input(&c, "\n", 1));
    EXPECT_FALSE(SCPI_Input(&c, ":FOO\n", 5));
    SCPI_Deinit(&c);
}

extern "C" int scpi_headers_serve_c(void);

TEST(Context, HeadersCompileAsC)
{
    EXPECT_EQ(scpi_headers_serve_c(), 0);
}

} // namespace
