// How a line is split into runs, as seen by the module.
#include <gtest/gtest.h>

#include "instrument.h"

using namespace orvan_test;
using Requests = std::vector<std::string>;

namespace {

Requests requests_of(const std::string& line, std::string* reply = nullptr)
{
    Instrument instrument;
    instrument.clear_requests(1);
    const std::string answer = instrument.client().ask(line);
    if (reply != nullptr) {
        *reply = answer;
    }
    return instrument.requests(1);
}

} // namespace

TEST(Runs, ConsecutiveForwardedSubCommandsAreOneConversation)
{
    ORVAN_NEEDS_SANDBOX();
    std::string reply;
    EXPECT_EQ(requests_of(":FREQ 1e6;:POW 2;:FREQ?", &reply), Requests{":FREQ 1e6;:POW 2;:FREQ?;\\r\\n"});
    EXPECT_EQ(reply, "1000000;+OK\r\n");
}

TEST(Runs, ALibraryRowBetweenForwardedOnesSplitsTheRun)
{
    ORVAN_NEEDS_SANDBOX();
    EXPECT_EQ(requests_of(":FREQ?;*IDN?;:POW?"), (Requests{":FREQ?;\\r\\n", ":POW?;\\r\\n"}));
}

TEST(Runs, ARelativeHeaderStartsItsOwnRunWithItsWholePath)
{
    ORVAN_NEEDS_SANDBOX();
    EXPECT_EQ(requests_of(":SOUR:FREQ 1e6;POW 2"), (Requests{":SOUR:FREQ 1e6;\\r\\n", ":SOUR:POW 2;\\r\\n"}));
}

TEST(Runs, AnUndefinedRelativeHeaderSendsTheRunBeforeIt)
{
    ORVAN_NEEDS_SANDBOX();
    std::string reply;
    EXPECT_EQ(requests_of(":FREQ 1e6;FOO", &reply), Requests{":FREQ 1e6;\\r\\n"});
    EXPECT_EQ(reply, "-ERR -113, \"Undefined header\";+OK\r\n");
}

TEST(Runs, SixtyFourSubCommandsTravelTogether)
{
    ORVAN_NEEDS_SANDBOX();
    std::string line;
    for (int i = 0; i < 64; ++i) {
        line += (i == 0 ? "" : ";") + std::string(":POW ") + std::to_string(i % 10);
    }
    EXPECT_EQ(requests_of(line).size(), 1U);
}

TEST(Runs, SixtyFiveSubCommandsReachNoModule)
{
    ORVAN_NEEDS_SANDBOX();
    std::string line;
    for (int i = 0; i < 65; ++i) {
        line += (i == 0 ? "" : ";") + std::string(":POW ") + std::to_string(i % 10);
    }
    std::string reply;
    EXPECT_TRUE(requests_of(line, &reply).empty());
    EXPECT_EQ(reply, "-ERR -223, \"Too much data\";+OK\r\n");
}
