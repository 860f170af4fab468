#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "service/standard/standard_reply.h"

using namespace orvan_service;

namespace orvan_service {

void PrintTo(const StandardError& error, std::ostream* out)
{
    *out << error.number << ",\"" << error.text << '"';
}

void PrintTo(const StandardReply& reply, std::ostream* out)
{
    *out << testing::PrintToString(reply.results) << " and errors " << testing::PrintToString(reply.errors);
}

} // namespace orvan_service

namespace {

std::string results(std::string_view reply)
{
    const StandardReply taken = take_reply_apart(reply);
    EXPECT_TRUE(taken.errors.empty()) << testing::PrintToString(taken);
    return taken.results;
}

/** The one error of a reply without results. */
StandardError error(std::string_view reply)
{
    const StandardReply taken = take_reply_apart(reply);
    EXPECT_EQ(taken.results, "");
    EXPECT_EQ(taken.errors.size(), 1u) << testing::PrintToString(taken);
    return taken.errors.empty() ? StandardError{0, {}} : taken.errors.front();
}

} // namespace

TEST(StandardReply, TheSuccessWordAndTheLineEndAreNoResult)
{
    EXPECT_EQ(results("+OK\r\n"), "");
    EXPECT_EQ(results("+OK"), "");
    EXPECT_EQ(results("\r\n"), "");
    EXPECT_EQ(results(""), "");
    EXPECT_EQ(results("1000000000;+OK\r\n"), "1000000000");
    EXPECT_EQ(results("1;2;3;+OK\r\n"), "1;2;3");
    EXPECT_EQ(results("1;;2;+OK\r\n"), "1;2");
    EXPECT_EQ(results("5\r\n;6;+OK\r\n"), "5;6") << "of a module that sent no success word";
}

TEST(StandardReply, TheWordsMayBeMissing)
{
    EXPECT_EQ(results("1;2\r\n"), "1;2");
    EXPECT_EQ(results("1;2;+OK"), "1;2");
    EXPECT_EQ(results("1;2"), "1;2");
}

// The instrument's buffer has 2,048 bytes; the words are left out one after the other as it fills.
TEST(StandardReply, AReplyThatFillsTheBufferIsItsResults)
{
    for (size_t size = 2040; size <= 2048; ++size) {
        const std::string text = std::string(size - 3, '7') + ";42";
        std::string reply = text;
        for (const char* word : {";+OK", "\r\n"}) {
            reply += reply.size() + std::string_view(word).size() <= 2048 ? word : "";
        }
        EXPECT_EQ(results(reply), text) << size;
        const std::string string = '"' + std::string(size - 2, ';') + '"';
        EXPECT_EQ(results(string + reply.substr(size)), string) << size;
    }
}

TEST(StandardReply, OnlyTheLastSuccessWordIsNoResult)
{
    EXPECT_EQ(results("\"+OK\";+OK\r\n"), "\"+OK\"");
    EXPECT_EQ(results("+OK;1;+OK\r\n"), "+OK;1");
    EXPECT_EQ(results("1+OK;+OK\r\n"), "1+OK");
}

TEST(StandardReply, ASemicolonInAStringSeparatesNothing)
{
    for (const std::string text : {R"("a;b")", R"("a;""b;""")", R"("a"";-ERR 1")", R"('a'';-ERR 1')",
                                   R"("";1)", R"(1,"a;-ERR b";2)", R"("-ERR 1;+OK")", R"(1, "a;b";2)",
                                   R"('a;b')", R"('a;''-ERR';2)", R"-(("a;)",2);3)-", R"("it's;";"it's;")"}) {
        EXPECT_EQ(results(text + ";+OK\r\n"), text);
    }
}

TEST(StandardReply, ASemicolonInAnExpressionSeparatesNothing)
{
    EXPECT_EQ(results("(@1;2);3;+OK\r\n"), "(@1;2);3");
    EXPECT_EQ(results("(1;\"a)b\";2);3;+OK\r\n"), "(1;\"a)b\";2);3");
    EXPECT_EQ(results("1,((1;-ERR 2);-ERR 3);4;+OK\r\n"), "1,((1;-ERR 2);-ERR 3);4");
}

TEST(StandardReply, AQuoteOrAParenthesisThatIsNoDelimiterHidesNoError)
{
    struct Row {
        const char* reply;
        const char* results;
    };
    for (const Row& row : {Row{"Halde's;-ERR 1;Sam's;+OK\r\n", "Halde's;Sam's"},
                           Row{"3.5\" disk;-ERR 1;5\" disk;+OK\r\n", "3.5\" disk;5\" disk"},
                           Row{"a (b;-ERR 1;c);+OK\r\n", "a (b;c)"}, Row{"\"a;-ERR 1;b;+OK\r\n", "\"a;b"},
                           Row{"(a;-ERR 1;b;+OK\r\n", "(a;b"}, Row{")a;-ERR 1;b;+OK\r\n", ")a;b"}}) {
        const StandardReply taken = take_reply_apart(row.reply);
        EXPECT_EQ(taken.results, row.results);
        EXPECT_EQ(taken.errors, (std::vector<StandardError>{{1, "Unknown error"}})) << row.reply;
    }
}

TEST(StandardReply, ABlockPassesUntouched)
{
    std::string bytes;
    for (int i = 0; i < 256; ++i) {
        bytes += static_cast<char>(i);
    }
    for (const std::string& data : {std::string("a;b"), std::string("\r\n"), std::string("+OK\r\n"),
                                    std::string("x;+OK"), std::string("-ERR 1"), std::string(";;;"),
                                    std::string("a,"), std::string("\"'("), std::string("  "), bytes}) {
        const std::string length = std::to_string(data.size());
        const std::string block = "#" + std::to_string(length.size()) + length + data;
        for (const char* end : {"", "+OK", "\r\n", ";+OK\r\n", "+OK\r\n"}) {
            EXPECT_EQ(results(block + end), block) << end;
        }
        EXPECT_EQ(results("1" + block + "2;+OK\r\n"), "1;" + block + ";2");
        EXPECT_EQ(results(block + block + "+OK\r\n"), block + ';' + block);
        EXPECT_EQ(results("1;" + block + ";2;+OK\r\n"), "1;" + block + ";2");
        EXPECT_EQ(results("1," + block + ",2;+OK\r\n"), "1," + block + ",2");
        EXPECT_EQ(results(block + ",2;,3;+OK\r\n"), block + ",2;,3");
    }
}

TEST(StandardReply, ABlockOfAnyNumberOfWholeBuffersHasNoSeparatorBeforeTheSuccessWord)
{
    for (const size_t size : {2048u, 4096u, 8192u, 2047u, 2049u, 65536u}) {
        const std::string length = std::to_string(size - 2 - 4);
        const std::string header = "#" + std::to_string(length.size()) + length;
        const std::string block = header + std::string(std::stoul(length), ';');
        EXPECT_EQ(results(block + "+OK\r\n"), block);
        EXPECT_EQ(results(block + ";+OK\r\n"), block);
    }
}

TEST(StandardReply, AnEmptyBlockIsAResult)
{
    EXPECT_EQ(results("#10;+OK\r\n"), "#10");
    EXPECT_EQ(results("#10#10;+OK\r\n"), "#10;#10");
    EXPECT_EQ(results("#9000000000;+OK\r\n"), "#9000000000");
}

TEST(StandardReply, ABlockThatIsCutShortExtendsToTheEnd)
{
    EXPECT_EQ(results("#3100ab;-ERR 1;cd"), "#3100ab;-ERR 1;cd");
    EXPECT_EQ(results("1,#9999999999;"), "1,#9999999999;");
    const StandardReply text = take_reply_apart("DEV#3100ab;-ERR 1;cd");
    EXPECT_EQ(text.results, "DEV#3100ab;cd") << "no block within a text";
    EXPECT_EQ(text.errors.size(), 1u);
}

TEST(StandardReply, WhatOnlyLooksLikeABlockIsText)
{
    for (const std::string text : {"#H1F", "#Q7", "#", "#1", "#0", "#0abc", "#2a", "#212", "#1:", "#2+5abcde",
                                   "#12", "DEV#12", "DEV#2:;1", "A#9;1"}) {
        EXPECT_EQ(results(text + ";+OK\r\n"), text);
    }
}

TEST(StandardReply, ANumberedErrorKeepsItsNumberAndItsText)
{
    EXPECT_EQ(error("-ERR -113, \"Undefined header\";+OK\r\n"), (StandardError{-113, "Undefined header"}));
    EXPECT_EQ(error("-ERR -222,\"Data out of range;above 3 GHz\";+OK\r\n"),
              (StandardError{-222, "Data out of range;above 3 GHz"}));
    EXPECT_EQ(error("-ERR -222, \"\x01\";+OK\r\n"), (StandardError{-222, "Data out of range"}));
    EXPECT_EQ(error("-ERR -222;+OK\r\n"), (StandardError{-222, "Data out of range"}));
    EXPECT_EQ(error("-ERR 501, \"Synthesizer unlocked\";+OK\r\n"),
              (StandardError{501, "Synthesizer unlocked"}));
    EXPECT_EQ(error("-ERR -113, \"Undefined header"), (StandardError{-113, "Undefined header"}));
}

TEST(StandardReply, AnErrorWithoutANumberGetsOne)
{
    struct Row {
        const char* text;
        StandardError error;
    };
    for (const Row& row : {Row{"Receive timeout", {-365, "Time out error;Receive timeout"}},
                           Row{"Error while receiving server's msg",
                               {-360, "Communication error;Error while receiving server's msg"}},
                           Row{"Unable to connect", {-241, "Hardware missing;Unable to connect"}},
                           Row{"Unable to create socket", {-241, "Hardware missing;Unable to create socket"}},
                           Row{"Unable to send message", {-241, "Hardware missing;Unable to send message"}},
                           Row{"Connection timeout", {-241, "Hardware missing;Connection timeout"}},
                           Row{"file not found", {-200, "Execution error;file not found"}},
                           Row{"", {-200, "Execution error"}}, Row{"\x01\"", {-200, "Execution error"}},
                           Row{"0, \"nothing\"", {-200, "Execution error;0, nothing"}},
                           Row{"-99999, \"x\"", {-200, "Execution error;-99999, x"}},
                           Row{"say \"a;b\"\x01", {-200, "Execution error;say a;b"}}}) {
        EXPECT_EQ(error("-ERR " + std::string(row.text) + ";+OK\r\n"), row.error);
    }
}

TEST(StandardReply, TheTextOfAnErrorHasAtMost255Characters)
{
    EXPECT_EQ(error("-ERR " + std::string(2000, 'x')).text.size(), 255u);
    EXPECT_EQ(error("-ERR -200, \"" + std::string(2000, 'x') + '"').text, std::string(255, 'x'));
}

TEST(StandardReply, ResultsAndErrorsKeepTheirOrder)
{
    const StandardReply taken =
        take_reply_apart("1;-ERR -113, \"Undefined header\";\"2;-ERR\";-ERR Receive timeout;3;+OK\r\n");
    EXPECT_EQ(taken.results, "1;\"2;-ERR\";3");
    EXPECT_EQ(taken.errors, (std::vector<StandardError>{{-113, "Undefined header"},
                                                        {-365, "Time out error;Receive timeout"}}));
}

// Its apostrophe opens no string.
TEST(StandardReply, EveryErrorOfABrokenLinkIsFound)
{
    const std::string link = "-ERR Error while receiving server's msg";
    const StandardReply taken = take_reply_apart(link + ";1;" + link + ";'a;b';" + link + ";+OK\r\n");
    EXPECT_EQ(taken.results, "1;'a;b'");
    EXPECT_EQ(taken.errors.size(), 3u);
}

TEST(StandardReply, AnErrorNextToABlockIsFound)
{
    const StandardReply taken =
        take_reply_apart("-ERR -113, \"Undefined header\"#15a;b\r\n-ERR -222, \"#13abc\"#12;;+OK\r\n");
    EXPECT_EQ(taken.results, "#15a;b\r\n;#12;;");
    EXPECT_EQ(taken.errors, (std::vector<StandardError>{{-113, "Undefined header"}, {-222, "#13abc"}}));
}
