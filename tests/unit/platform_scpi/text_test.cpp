// Texts as parameters.
#include <string>

#include "parameter_fixture.h"

using namespace std::string_literals;

namespace {

/* ParamCharacters */

TEST_F(Parameter, CharactersPointAtWordsAndInsideStrings)
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

} // namespace
