// Lines on the Unix socket.
#include <string>

#include <sys/socket.h>

#include <gtest/gtest.h>

#include "local_fixture.h"

using namespace orvan_service;
using namespace orvan_test;
using Texts = std::vector<std::string>;

TEST_F(LocalTest, EachMessageIsAnsweredByOneLine)
{
    LocalClient client(socket);
    EXPECT_EQ(client.ask(":FREQ?\n"), ":FREQ?\n");
    EXPECT_EQ(client.ask(":FREQ 1\n"), "\n");
    EXPECT_EQ(client.ask("\n"), "\n");
    EXPECT_EQ(client.ask("*ESE?;:FREQ?\r\n"), "0;:FREQ?\n");
    EXPECT_EQ(client.ask(":SYST:ERR:SESS?\n"), "0,\"No error\"\n");
}

TEST_F(LocalTest, ErrorsAreInTheSessionsOwnQueue)
{
    instrument.answer_with([](int&, const std::string& message) {
        return message == ":FOO" ? "-ERR -113, \"Undefined header\";+OK\r\n" : "+OK\r\n";
    });
    LocalClient client(socket);
    LocalClient other(socket);
    client.send(":INST 2;:FOO;:FOO\n:SYST:ERR:SESS?\n");
    EXPECT_EQ(client.line(), "\n");
    EXPECT_EQ(client.line(), "0,\"No error\"\n") << "the scripted reply is to one unit";
    EXPECT_EQ(client.ask(":FOO\n"), "\n");
    EXPECT_EQ(other.ask(":SYST:ERR:SESS?\n"), "0,\"No error\"\n");
    EXPECT_EQ(client.ask(":SYST:ERR:SESS?\n"), "-113,\"Undefined header\"\n");
}

TEST_F(LocalTest, EachClientHasItsChannel)
{
    instrument.answer_with([](int& channel, const std::string& message) {
        channel = message == ":INST 3" ? 3 : channel;
        return std::to_string(channel) + ";+OK\r\n";
    });
    LocalClient first(socket);
    LocalClient second(socket);
    first.ask(":INST 3\n");
    EXPECT_EQ(first.ask(":FREQ?\n"), "3\n");
    EXPECT_EQ(second.ask(":FREQ?\n"), "1\n");
}

TEST_F(LocalTest, OneByteAtATime)
{
    LocalClient client(socket);
    for (const char c : std::string(":A?;:B?\n:LIST:DATA #15a\nb\nc;:C 1\n")) {
        client.send({&c, 1});
    }
    EXPECT_EQ(client.line(), ":A?;:B?\n");
    EXPECT_EQ(client.line(), "\n");
    EXPECT_EQ(instrument.texts(), (Texts{":A?;:B?", ":LIST:DATA #15a\nb\nc;:C 1"}));
}

TEST_F(LocalTest, ManyMessagesAtATimeAreAnsweredInOrder)
{
    constexpr int kMessages = 2000;
    LocalClient client(socket);
    std::string sent;
    for (int i = 0; i < kMessages; ++i) {
        sent += i % 2 == 0 ? ":Q" + std::to_string(i) + "?\n" : ":C" + std::to_string(i) + "\n";
    }
    client.send(sent);
    for (int i = 0; i < kMessages; ++i) {
        ASSERT_EQ(client.line(), i % 2 == 0 ? ":Q" + std::to_string(i) + "?\n" : "\n");
    }
}

TEST_F(LocalTest, ALineFeedWithinABlockOfAResponseDoesNotEndIt)
{
    instrument.answer_with([](int&, const std::string&) { return "#15a\nb\nc+OK\r\n"; });
    LocalClient client(socket);
    client.send(":DATA?\n*ESE?\n");
    EXPECT_EQ(client.bytes(9), "#15a\nb\nc\n");
    EXPECT_EQ(client.line(), "0\n");
}

TEST_F(LocalTest, AMessageOfThreeMegabytesIsExecuted)
{
    const std::string length = "3145700";
    const std::string message = ":D #7" + length + std::string(3145699, '\n') + "x\n";
    LocalClient client(socket);
    EXPECT_EQ(client.ask(message), "\n");
    ASSERT_EQ(instrument.texts().size(), 1u);
    EXPECT_EQ(instrument.texts()[0].size() + 1, message.size());
}

TEST_F(LocalTest, AMessageThatIsTooLongIsDroppedAndReported)
{
    LocalClient client(socket);
    client.send(std::string(0x300000, 'x'));
    EXPECT_EQ(client.ask("\n"), "\n");
    EXPECT_EQ(client.ask(":SYST:ERR:SESS?\n"), "-363,\"Input buffer overrun\"\n");
    EXPECT_EQ(client.ask(":FREQ?\n"), ":FREQ?\n");
    EXPECT_EQ(instrument.texts(), Texts{":FREQ?"});
}

TEST_F(LocalTest, HalfAMessageIsNotExecutedAndHoldsNobodyUp)
{
    LocalClient half(socket);
    LocalClient other(socket);
    half.send(":FREQ 1;:POW");
    EXPECT_EQ(other.ask(":FREQ?\n"), ":FREQ?\n");
    half.close();
    EXPECT_TRUE(eventually([&] { return server.executor().sessions() == 1; }));
    EXPECT_EQ(instrument.texts(), Texts{":FREQ?"});
}

TEST_F(LocalTest, WhatAClientHasSentBeforeItEndsItsInputIsAnswered)
{
    LocalClient client(socket);
    client.send(":A?\n:B?\n:HALF");
    client.finish_sending();
    EXPECT_EQ(client.rest(), ":A?\n:B?\n");
    EXPECT_EQ(instrument.texts(), (Texts{":A?", ":B?"}));
}

TEST_F(LocalTest, WhatAClientHasSentBeforeItClosesIsExecuted)
{
    LocalClient other(socket);
    {
        LocalClient client(socket);
        instrument.shut();
        other.send(":BUSY\n");
        ASSERT_TRUE(eventually([&] { return instrument.at_work() == 1; }));
        client.send(std::string(20000, ' ') + ":A 1\n:B 1\n:C 1\n");
    }
    instrument.open();
    EXPECT_TRUE(eventually([&] { return server.executor().sessions() == 1; }));
    EXPECT_EQ(instrument.texts().size(), 4u);
}

TEST_F(LocalTest, AClientThatDoesNotReadHoldsNobodyUpAndIsClosed)
{
    const std::string large(100'000, 'x');
    instrument.answer_with(
        [&](int&, const std::string& message) { return (message == ":L?" ? large : message) + ";+OK\r\n"; });
    LocalClient lazy(socket);
    LocalClient other(socket);
    for (int i = 0; i < 100; ++i) {
        lazy.send(":L?\n");
    }
    EXPECT_EQ(other.ask(":FREQ?\n"), ":FREQ?\n");
    EXPECT_LT(instrument.texts().size(), 100u) << "executed only when its replies are taken";
    EXPECT_TRUE(eventually([&] { return server.executor().sessions() == 1; }));
    const std::string line = "local client ";
    const std::string end = ": closed, it does not read its responses";
    bool logged = false;
    for (const LogLine& entry : log.lines()) {
        logged = logged || (entry.text.starts_with(line) && entry.text.ends_with(end));
    }
    EXPECT_TRUE(logged);
}

TEST_F(LocalTest, AClientThatReadsSlowlyGetsAllOfALongResponse)
{
    const std::string large(2'000'000, 'x');
    instrument.answer_with([&](int&, const std::string&) { return large + ";+OK\r\n"; });
    LocalClient client(socket);
    client.send(":L?\n:L?\n");
    EXPECT_EQ(client.line().size(), large.size() + 1);
    EXPECT_EQ(client.line().size(), large.size() + 1);
}

TEST_F(LocalTest, AClientWaitsForTheLockOfAnother)
{
    const int holder = 0;
    LocalClient client(socket);
    EXPECT_EQ(client.ask(":A?\n"), ":A?\n");
    ASSERT_TRUE(server.locks().lock(&holder));
    client.send(":B?\n");
    EXPECT_EQ(client.line(std::chrono::milliseconds(100)), "");
    EXPECT_EQ(instrument.texts(), Texts{":A?"});
    EXPECT_EQ(server.executor().counters().of(Protocol::kLocal).messages, 1u) << "it gets no turns meanwhile";
    server.locks().unlock(&holder);
    EXPECT_EQ(client.line(), ":B?\n");
}

TEST_F(LocalTest, WhatALockExcludesIsDroppedWhenTheClientCloses)
{
    const int holder = 0;
    {
        LocalClient client(socket);
        EXPECT_EQ(client.ask(":A?\n"), ":A?\n");
        ASSERT_TRUE(server.locks().lock(&holder));
        client.send(":B 1\n");
    }
    EXPECT_TRUE(eventually([&] { return server.executor().sessions() == 0; }));
    server.locks().unlock(&holder);
    EXPECT_EQ(instrument.texts(), Texts{":A?"});
}

TEST_F(LocalTest, AnInstrumentThatThrowsIsAnErrorOfTheSession)
{
    instrument.answer_with([](int&, const std::string&) -> std::string { throw std::runtime_error("odd"); });
    LocalClient client(socket);
    EXPECT_EQ(client.ask(":A?\n"), "\n");
    EXPECT_EQ(client.ask(":SYST:ERR:SESS?\n"), "-310,\"System error\"\n");
}
