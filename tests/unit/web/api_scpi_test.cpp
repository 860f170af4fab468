#include <gmock/gmock.h>

#include "api/base64.h"
#include "api_fixture.h"
#include "instrument/utf8.h"

using namespace orvan_web;
using testing::HasSubstr;

namespace {

using ApiScpi = orvan_test::ApiTest;

} // namespace

TEST_F(ApiScpi, LineIsExecutedOnItsChannelWithItsErrors)
{
    const Response response =
        request("POST", "/api/v1/scpi", R"({"channel":2,"line":":FREQ 2GHz;:FREQ?;:FOO"})");
    EXPECT_EQ(response.status, 200);
    EXPECT_THAT(
        response.body,
        HasSubstr(
            R"("response":"2000000000","errors":[{"number":-113,"text":"Undefined header"}],"duration_ms":)"));
    EXPECT_EQ(service.value(2, ":FREQ"), "2000000000");
    EXPECT_EQ(service.value(1, ":FREQ"), "1000000000");
    EXPECT_THAT(request("POST", "/api/v1/scpi", R"({"line":":FREQ?"})").body,
                HasSubstr("1000000000")); // channel 1
}

TEST_F(ApiScpi, BytesThatAreNotTextComeInBase64)
{
    service.respond(":INST 1;:BIN?", "#13\xff\n\x01");
    EXPECT_THAT(request("POST", "/api/v1/scpi", R"({"line":":BIN?"})").body,
                HasSubstr("{\"response_base64\":\"" + base64("#13\xff\n\x01") + "\""));
}

TEST_F(ApiScpi, WhatIsNotOneMessageIsRefused)
{
    service.forget_messages();
    for (const char* body : {"", "{}", "[]", R"({"line":""})", R"({"line":"  "})",
                             R"({"line":":FREQ?\n:OUTP ON"})", R"({"line":":A #15abc"})", R"({"line":1})",
                             R"({"line":"*IDN?","channel":5})", R"({"line":"*IDN?","channel":0})",
                             R"({"line":"*IDN?","channel":1.5})", R"({"line":"*IDN?","channel":"1"})"}) {
        EXPECT_EQ(request("POST", "/api/v1/scpi", body).status, 400) << body;
    }
    EXPECT_TRUE(service.messages().empty());
}

TEST(Base64, HasThePaddingOfTheStandard)
{
    EXPECT_EQ(base64(""), "");
    EXPECT_EQ(base64("f"), "Zg==");
    EXPECT_EQ(base64("fo"), "Zm8=");
    EXPECT_EQ(base64("foo"), "Zm9v");
    EXPECT_EQ(base64("\xff\xfe\xfd\xfc"), "//79/A==");
}

TEST(Utf8, IsValidOnlyInItsShortestForm)
{
    for (const char* text : {"", "abc", "\u00b5", "\u20ac", "\U0001F600", "\U0010FFFF"}) {
        EXPECT_TRUE(is_utf8(text)) << text;
    }
    for (const char* text : {"\xc0\xaf", "\xe0\x80\x80", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xff", "\xc3",
                             "a\x80", "\xe2\x82", "\xf0\x80\x80\x80"}) {
        EXPECT_FALSE(is_utf8(text)) << text;
    }
    EXPECT_FALSE(is_utf8(std::string_view("a\0b", 3)));
    EXPECT_EQ(as_utf8("\xb5s"), "\u00b5s");
}
