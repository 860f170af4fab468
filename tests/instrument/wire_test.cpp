// The bytes that a client receives over real sockets, from modules and from the parser.
#include <gtest/gtest.h>

#include "instrument.h"

using namespace orvan_test;

namespace {

const std::string kIdentity = "Halde Electronics Ltd.,OVX3654B,100001,1.19.145";

} // namespace

TEST(Wire, EachKindOfLineGetsExactlyItsBytes)
{
    ORVAN_NEEDS_SANDBOX();
    Instrument instrument;
    Client client = instrument.client();
    const struct {
        const char* line;
        std::string reply;
    } rows[] = {
        {"*IDN?", kIdentity + ";+OK\r\n"},
        {":FREQ 1000000000", "+OK\r\n"},
        {":FREQ?", "1000000000;+OK\r\n"},
        {":FOO", "-ERR -113, \"Undefined header\";+OK\r\n"},
        {":POW 5", "+OK\r\n"},
        {":FREQ?;*IDN?;:POW?", "1000000000;" + kIdentity + ";5;+OK\r\n"},
        {":FREQ?;:FOO", "1000000000;-ERR -113, \"Undefined header\";+OK\r\n"},
        {":STAT:OPER:ENAB 5;:STAT:OPER:ENAB?;:STAT:QUES?", "5;0;+OK\r\n"},
        {":SYST:VERS?", "1999.0;+OK\r\n"},
        {"", "+OK\r\n"},
        {":LIST:DATA?", "-ERR -113, \"Undefined header\";+OK\r\n"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(client.ask(row.line), row.reply) << row.line;
    }
}

TEST(Wire, ALastLineWithoutALineFeedGetsNoReply)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({"--model", "OVX3651P"});
    Client client = instrument.client();
    ASSERT_TRUE(client.send("*CLS\n*IDN?"));
    client.finish_sending();
    EXPECT_EQ(client.read_line(), "+OK\r\n");
    EXPECT_EQ(client.read_line(), "") << "the connection is closed";
}

TEST(Wire, AModuleThatCannotBeReachedIsReportedInTheReply)
{
    ORVAN_NEEDS_SANDBOX();
    Instrument instrument;
    Client client = instrument.client();
    ASSERT_EQ(instrument.ctl({"module", "1", "refuse"}).status, 0);
    EXPECT_EQ(client.ask(":FREQ?"), "-ERR Unable to connect;+OK\r\n");
    EXPECT_EQ(client.ask("*IDN?"), kIdentity + ";+OK\r\n");
    ASSERT_EQ(instrument.ctl({"module", "1", "up"}).status, 0);
    EXPECT_EQ(client.ask(":FREQ 7e9;:FREQ?"), "7000000000;+OK\r\n");
}

TEST(Wire, ADroppedLinkIsAConnectionTimeout)
{
    ORVAN_NEEDS_SANDBOX();
    Instrument instrument;
    Client client = instrument.client();
    ASSERT_EQ(instrument.ctl({"module", "1", "drop"}).status, 0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(client.ask(":FREQ?"), "-ERR Connection timeout;+OK\r\n");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(4900));
    ASSERT_EQ(instrument.ctl({"module", "1", "up"}).status, 0);
    EXPECT_EQ(client.ask(":FREQ 7e9;:FREQ?"), "7000000000;+OK\r\n");
}

TEST(Wire, ASilentModuleIsAReceiveTimeout)
{
    ORVAN_NEEDS_SANDBOX();
    Instrument instrument;
    Client client = instrument.client();
    ASSERT_EQ(instrument.ctl({"module", "1", "silent"}).status, 0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(client.ask(":FREQ?"), "-ERR Receive timeout;+OK\r\n");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(9900));
}

TEST(Wire, AModuleThatClosesWithoutReplyingYieldsAnEmptyResult)
{
    ORVAN_NEEDS_SANDBOX();
    Instrument instrument;
    Client client = instrument.client();
    ASSERT_EQ(instrument.ctl({"module", "1", "close"}).status, 0);
    EXPECT_EQ(client.ask(":FREQ?"), "+OK\r\n");
}

TEST(Wire, AReplyInTwoSegmentsIsCutAtTheFirst)
{
    ORVAN_NEEDS_SANDBOX();
    Instrument instrument;
    Client client = instrument.client();
    client.ask(":FREQ 123456789");
    ASSERT_EQ(instrument.ctl({"module", "1", "split"}).status, 0);
    const std::string reply = client.ask(":FREQ?");
    EXPECT_LT(reply.size(), std::string("123456789;+OK\r\n").size());
    EXPECT_EQ(std::string("123456789;+OK\r\n").rfind(reply.substr(0, reply.find(";+OK")), 0), 0U) << reply;
}

TEST(Wire, OnlyTheSelectedModuleIsQueried)
{
    ORVAN_NEEDS_SANDBOX();
    Instrument instrument;
    Client client = instrument.client();
    for (int module = 1; module <= 4; ++module) {
        instrument.clear_requests(module);
    }
    client.ask(":FREQ?");
    EXPECT_EQ(instrument.requests(1).size(), 1U);
    for (int module = 2; module <= 4; ++module) {
        EXPECT_TRUE(instrument.requests(module).empty());
    }
}
