#include <regex>
#include <string>

#include <gtest/gtest.h>

#include "orvan_sdk/scpi-parser/scpi-def.h"
#include "service/raw/http_request_line.h"

using namespace orvan_service;
using Verdict = HttpRequestLine::Verdict;

namespace {

Verdict verdict_on(const std::string& bytes)
{
    return HttpRequestLine().feed(bytes);
}

} // namespace

TEST(HttpRequestLine, IsRecognisedByItsThreeWords)
{
    for (const char* line : {
             "GET / HTTP/1.1\r\n",
             "POST / HTTP/1.1\r\n",
             "POST / HTTP/1.1\n",
             "POST / HTTP/1.0\r\nHost: 127.0.0.1:5025\r\n\r\n:OUTP ON",
             "GET /a%20b?c=d&e='f'\"#9100 HTTP/1.1\r\n",
             "GET /gr\303\266\303\237e HTTP/1.1\r\n",
             "OPTIONS * HTTP/1.1\r\n",
             "GET http://10.0.0.2:5025/ HTTP/1.1\r\n",
             "CONNECT 10.0.0.2:5025 HTTP/1.1\r\n",
             "CONNECT [::1]:5025 HTTP/1.1\r\n",
             "PRI * HTTP/2.0\r\n",
             "get / HTTP/1.1\r\n",
             "M-SEARCH * HTTP/1.1\r\n",
         }) {
        EXPECT_EQ(verdict_on(line), Verdict::kYes) << line;
    }
    EXPECT_EQ(verdict_on("GET /" + std::string(5'000'000, 'x') + " HTTP/1.1\r\n"), Verdict::kYes);
}

TEST(HttpRequestLine, IsRecognisedOneByteAtATimeAndNotBeforeItsLineFeed)
{
    const std::string line = "POST /a HTTP/1.1\r\n";
    HttpRequestLine detector;
    for (size_t i = 0; i + 1 < line.size(); ++i) {
        ASSERT_EQ(detector.feed({&line[i], 1}), Verdict::kOpen) << i;
    }
    EXPECT_EQ(detector.feed({&line.back(), 1}), Verdict::kYes);
    EXPECT_EQ(detector.feed(std::string_view("*IDN?\n")), Verdict::kYes) << "it stays so";
}

TEST(HttpRequestLine, IsNoProgramMessage)
{
    for (const char* line : {
             "*IDN?\n",
             "\n",
             "\r\n",
             " / HTTP/1.1\r\n",
             ":OUTP ON\n",
             "OUTP ON\n",
             "FREQ 1 GHZ;POW 2 HTTP/1.1\n",
             "FREQ 1 GHZ\n",
             "FREQ 1 HTTP\n",
             ":DISP:TEXT \"GET / HTTP/1.1\"\n",
             "TEXT \"/ HTTP/1.1\n",
             "TEXT '/ HTTP/1.1\n",
             "DATA #216/index HTTP/1.1\n\n",
             "DATA #0/ HTTP/1.1\n",
             "GET  / HTTP/1.1\n",
             "GET /\n",
             "GET / HTTP/1\n",
             "GET / HTTP/1.1 \n",
             "GET / HTTP/1.1\r\r\n",
             "GET / HTTP/x.1\n",
             "GET / http/1.1\n",
             "GET / HTTPS/1.1\n",
             "GET / a HTTP/1.1\n",
             "GET /\tHTTP/1.1\n",
             "GET\t/ HTTP/1.1\n",
             "*IDN?\nGET / HTTP/1.1\r\n",
         }) {
        HttpRequestLine detector;
        EXPECT_EQ(detector.feed(std::string_view(line)), Verdict::kNo) << line;
        EXPECT_EQ(detector.feed(std::string_view("GET / HTTP/1.1\r\n")), Verdict::kNo) << "it stays so";
    }
    const std::string with_nul("GET\0 / HTTP/1.1\n", 16);
    EXPECT_EQ(verdict_on(with_nul), Verdict::kNo);
}

// With the optional leading colon, and also without what is optional.
TEST(HttpRequestLine, MatchesNoCommandOfTheInstrument)
{
    for (const scpi_command_t* row = scpi_commands; row->pattern != nullptr; ++row) {
        const std::string pattern = row->pattern;
        const std::string header = std::regex_replace(pattern, std::regex("\\[[^\\]]*\\]"), "");
        for (const char* parameter : {"", " ON", " 1 GHZ", " \"/ HTTP/1.1", " #15/ HTT", " MAX,/ HTTP"}) {
            EXPECT_EQ(verdict_on(pattern + parameter + "\n"), Verdict::kNo) << pattern << parameter;
            EXPECT_EQ(verdict_on(header + parameter + "\n"), Verdict::kNo) << header << parameter;
            EXPECT_EQ(verdict_on(header.substr(1) + parameter + "\n"), Verdict::kNo) << header << parameter;
        }
    }
}
