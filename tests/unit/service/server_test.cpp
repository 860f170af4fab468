// Messages: arrival, maximum length and replies.
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "service_fixture.h"

using namespace orvan_service;
using namespace orvan_test;

namespace {

using Texts = std::vector<std::string>;

std::string block_message(size_t bytes)
{
    const std::string digits = std::to_string(bytes);
    return ":DATA #" + std::to_string(digits.size()) + digits + std::string(bytes, '\n') + "\n";
}

} // namespace

TEST(Server, AMessageIsExecutedAndAnswered)
{
    RecordingSink sink;
    RunningServer server(sink);
    TestClient client(server.port());
    EXPECT_EQ(client.ask("*IDN?\r\n"), "*IDN?;+OK\r\n");
    EXPECT_EQ(sink.messages(), Texts{"*IDN?\r\n"});
}

TEST(Server, OneByteAtATimeIsOneMessage)
{
    RecordingSink sink;
    RunningServer server(sink);
    TestClient client(server.port());
    for (const char c : std::string(":FREQ 1\n")) {
        client.send(std::string(1, c));
    }
    EXPECT_EQ(client.line(), ":FREQ 1;+OK\r\n");
    EXPECT_EQ(sink.messages(), Texts{":FREQ 1\n"});
}

TEST(Server, TenMessagesInOneSegmentAreAnsweredOneByOneInOrder)
{
    RecordingSink sink;
    RunningServer server(sink);
    TestClient client(server.port());
    std::string bytes;
    for (int i = 0; i < 10; ++i) {
        bytes += ":FREQ " + std::to_string(i) + "\n";
    }
    client.send(bytes);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(client.line(), ":FREQ " + std::to_string(i) + ";+OK\r\n");
    }
    EXPECT_EQ(sink.messages().size(), 10u);
}

TEST(Server, ABlockWithLineFeedsIsOneMessage)
{
    RecordingSink sink([](int socket, const std::string&) { RecordingSink::answer(socket, "ok"); });
    RunningServer server(sink);
    TestClient client(server.port());
    const std::string message = block_message(2'900'000);
    EXPECT_EQ(client.ask(message), "ok;+OK\r\n");
    EXPECT_EQ(client.ask("*IDN?\n"), "ok;+OK\r\n");
    EXPECT_EQ(sink.messages(), (Texts{message, "*IDN?\n"}));
}

TEST(Server, ABlockIsIntactHoweverItIsSplit)
{
    RecordingSink sink([](int socket, const std::string&) { RecordingSink::answer(socket, "ok"); });
    RunningServer server(sink);
    TestClient client(server.port());
    const std::string message = block_message(2'000'000);
    for (const size_t piece : {size_t{1460}, size_t{300'000}, size_t{524'288}, size_t{999'999}}) {
        for (size_t at = 0; at < message.size(); at += piece) {
            client.send(message.substr(at, piece));
        }
        ASSERT_EQ(client.line(), "ok;+OK\r\n") << piece;
    }
    EXPECT_EQ(client.ask("*IDN?\n"), "ok;+OK\r\n");
    EXPECT_EQ(sink.messages().front(), message);
}

// Wherever the stream pauses, the rest must wake the receiver.
TEST(Server, ABlockThatPausesAnywhereIsReceived)
{
    RecordingSink sink([](int socket, const std::string&) { RecordingSink::answer(socket, "ok"); });
    RunningServer server(sink);
    TestClient client(server.port());
    for (const size_t size : {300'000u, 450'000u, 600'000u, 1'100'000u}) {
        const std::string message = block_message(size);
        for (size_t first = 50'000; first < message.size(); first += 50'000) {
            client.send(message.substr(0, first));
            std::this_thread::sleep_for(
                std::chrono::milliseconds(3)); // lets the server receive it; not needed to pass
            client.send(message.substr(first));
            ASSERT_EQ(client.line(), "ok;+OK\r\n") << size << " paused at " << first;
        }
    }
}

TEST(Server, AClientLostWithinABlockIsNoticed)
{
    RecordingSink sink;
    RunningServer server(sink);
    TestClient leaving(server.port());
    leaving.send(block_message(2'000'000).substr(0, 600'000));
    leaving.close();
    EXPECT_TRUE(eventually([&] { return server.server().clients() == 0; }));
    TestClient stalled(server.port());
    stalled.send(block_message(2'000'000).substr(0, 600'000));
    ASSERT_TRUE(eventually([&] { return server.server().clients() == 1; }));
    server.stop_accepting();
    EXPECT_TRUE(server.server().end(std::chrono::seconds(10)));
}

TEST(Server, AHalfClosedClientStillGetsItsReplies)
{
    RecordingSink sink;
    sink.shut();
    RunningServer server(sink);
    TestClient client(server.port());
    client.send("a\nb\nc\n");
    client.finish_sending();
    ASSERT_TRUE(eventually([&] { return sink.at_work() == 1; }));
    sink.open();
    EXPECT_EQ(client.line(), "a;+OK\r\n");
    EXPECT_EQ(client.line(), "b;+OK\r\n");
    EXPECT_EQ(client.line(), "c;+OK\r\n");
    EXPECT_TRUE(client.sees_end());
}

TEST(Server, AnUnfinishedMessageAtTheEndOfTheStreamIsDropped)
{
    RecordingSink sink;
    RunningServer server(sink);
    TestClient client(server.port());
    client.send("a\n:FREQ 1");
    client.finish_sending();
    EXPECT_EQ(client.line(), "a;+OK\r\n");
    EXPECT_TRUE(client.sees_end());
    EXPECT_EQ(sink.messages(), Texts{"a\n"});
}

TEST(Server, AnOversizedMessageIsRefusedOnceAndTheNextOneWorks)
{
    RecordingSink sink;
    RunningServer server(sink);
    TestClient client(server.port());
    client.send("a\n" + std::string(0x300000, 'x'));
    EXPECT_EQ(client.line(), "a;+OK\r\n");
    // Refused at once, before its end is sent.
    EXPECT_EQ(client.line(), "-ERR -363, \"Input buffer overrun\";+OK\r\n");
    client.send(std::string(100'000, 'y') + "\nb\n");
    EXPECT_EQ(client.line(), "b;+OK\r\n");
    EXPECT_EQ(sink.messages(), (Texts{"a\n", "b\n"}));
}

TEST(Server, TheLongestMessageIsTheParsersInputBuffer)
{
    RecordingSink sink([](int socket, const std::string&) { RecordingSink::answer(socket, "ok"); });
    RunningServer server(sink);
    TestClient client(server.port());
    EXPECT_EQ(client.ask(std::string(0x300000 - 1, 'x') + "\n"), "ok;+OK\r\n");
    EXPECT_EQ(sink.messages().at(0).size(), 0x300000u);
    EXPECT_EQ(client.ask(std::string(0x300000, 'x') + "\n"), "-ERR -363, \"Input buffer overrun\";+OK\r\n");
}

TEST(Server, ABlockThatCannotFitIsRefusedAtItsHeader)
{
    RecordingSink sink;
    RunningServer server(sink);
    TestClient client(server.port());
    EXPECT_EQ(client.ask(":DATA #9999999999"), "-ERR -363, \"Input buffer overrun\";+OK\r\n");
    TestClient other(server.port());
    EXPECT_EQ(other.ask("b\n"), "b;+OK\r\n");
}
