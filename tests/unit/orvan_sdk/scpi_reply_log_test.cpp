// Searching a reply for tokens, and logging it.
#include <cstdio>
#include <ostream>
#include <string>
#include <vector>

#include <syslog.h>

#include "reply_bench.h"

using namespace orvan_test;

namespace {

TEST(HasToken, IsFoundAnywhere)
{
    EXPECT_NE(has_token("-ERR", 4, "-ERR", 4), 0);
    EXPECT_NE(has_token("abc-ERR", 7, "-ERR", 4), 0);
    EXPECT_NE(has_token("a-ERRb", 6, "-ERR", 4), 0);
    EXPECT_NE(has_token("--ERR", 5, "-ERR", 4), 0);
    EXPECT_NE(has_token("a\0-ERR", 6, "-ERR", 4), 0);
    EXPECT_EQ(has_token("a-ERRb", 4, "-ERR", 4), 0);
    EXPECT_EQ(has_token("-err", 4, "-ERR", 4), 0);
}

TEST(HasToken, NullEmptyAndLongerTokensAreNotFound)
{
    EXPECT_EQ(has_token(nullptr, 4, "-ERR", 4), 0);
    EXPECT_EQ(has_token("-ERR", 4, nullptr, 4), 0);
    EXPECT_EQ(has_token("-ERR", 4, "", 0), 0);
    EXPECT_EQ(has_token("-ER", 3, "-ERR", 4), 0);
    EXPECT_EQ(has_token("", 0, "-ERR", 4), 0);
}

struct SendLogCase {
    const char* name;
    std::string bytes;
    int socket;
    const char* text;

    friend void PrintTo(const SendLogCase& tested, std::ostream* out) { *out << tested.name; }
};

class LogSend : public testing::TestWithParam<SendLogCase> {};

TEST_P(LogSend, LogsWhatIsSent)
{
    LogCapture logs;
    log_send(GetParam().bytes.data(), GetParam().bytes.size(), GetParam().socket);
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_INFO, GetParam().text}}));
}

using namespace std::string_literals;

// clang-format off
INSTANTIATE_TEST_SUITE_P(Bytes, LogSend, testing::Values(
    SendLogCase{"Empty",             "",                     7, "sending (empty) soc:07 len:0"},
    SendLogCase{"Text",              "+OK\r\n",              7, "sending \"+OK\" soc:07 len:5"},
    SendLogCase{"HighSocket",        "+OK",                123, "sending \"+OK\" soc:123 len:3"},
    SendLogCase{"AllLineEnds",       "\r\n\n\r",             7, "sending \"\" soc:07 len:4"},
    SendLogCase{"InnerLineEnd",      "a\r\nb\n\r\n",         7, "sending \"a\r\nb\" soc:07 len:7"},
    SendLogCase{"TextUpToNul",       "a\0b"s,                7, "sending \"a\" soc:07 len:3"},
    SendLogCase{"Block",             "#15abcde",             7, "sending #<1 digits> len=5 <binary data> soc:07 total=8"},
    SendLogCase{"BlockHeaderAlone",  "#3300",                7, "sending #<3 digits> len=300 <binary data> soc:07 total=5"},
    SendLogCase{"NineDigits",        "#9123456789x",         7, "sending #<9 digits> len=123456789 <binary data> soc:07 total=12"},
    SendLogCase{"NoDigits",          "#0abc",                7, "sending #<0 digits> len=0 <binary data> soc:07 total=5"},
    SendLogCase{"HeaderCutShort",    "#330",                 7, "sending <binary block> soc:07 len:4"},
    SendLogCase{"HashAndLetter",     "#H1F",                 7, "sending <binary block> soc:07 len:4"},
    SendLogCase{"HashAlone",         "#",                    7, "sending <binary block> soc:07 len:1"}),
    [](const auto& tested) { return tested.param.name; });
// clang-format on

TEST(LogSendNull, ANullBufferIsEmpty)
{
    LogCapture logs;
    log_send(nullptr, 5, 4);
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_INFO, "sending (empty) soc:04 len:0"}}));
}

TEST_F(ReplyPath, ReplyIsLoggedWithItsWords)
{
    write_and_flush({"5.0"});
    char text[64];
    std::snprintf(text, sizeof text, "sending \"5.0;+OK\" soc:%02d len:9", client.server());
    EXPECT_EQ(logs.count(LOG_INFO, text), 1u);
}

TEST_F(ReplyPath, LaterChunksOfABlockAreLoggedAsText)
{
    put_block(std::string(3000, 'd'));
    flush();
    char first[96];
    std::snprintf(first, sizeof first, "sending #<4 digits> len=3000 <binary data> soc:%02d total=2048",
                  client.server());
    char second[1200];
    std::snprintf(second, sizeof second, "sending \"%s;+OK\" soc:%02d len:964",
                  std::string(3006 - 2048, 'd').c_str(), client.server());
    EXPECT_EQ(logs.count(LOG_INFO, first), 1u);
    EXPECT_EQ(logs.count(LOG_INFO, second), 1u);
}

} // namespace
