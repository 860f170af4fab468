// Clients that vanish must not affect the others.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "hostile_clients.h"
#include "support/loopback.h"

using namespace orvan_service;
using namespace orvan_test;

TEST(HostileClients, ManyThatConnectAndVanishLeaveNothing)
{
    RecordingSink sink;
    RunningServer server(sink);
    expect_good_service(server.port());
    ASSERT_TRUE(eventually([&] { return server.server().clients() == 0; }));
    const size_t descriptors = open_descriptors();
    for (int i = 0; i < 500; ++i) {
        TestClient client(server.port());
        if (i % 2 == 0) {
            client.reset();
        }
    }
    EXPECT_TRUE(
        eventually([&] { return server.server().clients() == 0 && open_descriptors() <= descriptors; }));
    expect_good_service(server.port());
}

TEST(HostileClients, AHangUpInMidMessageDoesNoHarm)
{
    RecordingSink sink;
    RunningServer server(sink);
    for (int i = 0; i < 20; ++i) {
        TestClient client(server.port());
        client.send(i % 2 == 0 ? ":FREQ 1" : ":DATA #550000abc");
        if (i % 4 < 2) {
            client.reset();
        }
    }
    expect_good_service(server.port());
    EXPECT_TRUE(eventually([&] { return server.server().clients() == 0; }));
    EXPECT_EQ(sink.messages(), std::vector<std::string>{"*IDN?\n"});
}

TEST(HostileClients, AClientThatLeavesBeforeItsReplyHasItsMessageExecuted)
{
    RecordingSink sink;
    sink.shut();
    RunningServer server(sink);
    {
        TestClient client(server.port());
        client.send("a\nb\n");
        ASSERT_TRUE(eventually([&] { return sink.at_work() == 1; }));
        client.reset();
    }
    sink.open();
    expect_good_service(server.port());
    EXPECT_EQ(sink.messages().front(), "a\n");
    EXPECT_TRUE(eventually([&] { return server.server().clients() == 0; }));
}

TEST(HostileClients, AClientThatResetsHasNothingMoreExecuted)
{
    RecordingSink sink;
    sink.shut();
    RunningServer server(sink);
    std::string lines;
    for (int i = 0; i < 200; ++i) {
        lines += "line " + std::to_string(i) + "\n";
    }
    TestClient client(server.port());
    client.send(lines);
    ASSERT_TRUE(eventually([&] { return sink.at_work() == 1; }));
    client.reset();
    sink.open();
    EXPECT_TRUE(eventually([&] { return server.server().clients() == 0; }));
    EXPECT_EQ(sink.messages(), std::vector<std::string>{"line 0\n"});
}

TEST(HostileClients, AClientThatResetsDuringAnothersTurnHasNothingExecuted)
{
    RecordingSink sink;
    sink.shut();
    RunningServer server(sink);
    TestClient busy(server.port());
    busy.send("first\nsecond\n");
    ASSERT_TRUE(eventually([&] { return sink.at_work() == 1; }));
    TestClient resetting(server.port());
    resetting.send("a\nb\n");
    ASSERT_TRUE(eventually([&] { return server.server().clients() == 2; }));
    resetting.reset();
    sink.open();
    busy.line();
    EXPECT_EQ(busy.line(), "second;+OK\r\n");
    EXPECT_EQ(sink.messages(), (std::vector<std::string>{"first\n", "second\n"}));
}

// A script that sends its settings and leaves: it closes in order, even if our replies fail.
TEST(HostileClients, AClientThatSendsAndClosesHasEverythingExecuted)
{
    RecordingSink sink;
    RunningServer server(sink);
    sink.shut(); // closing with unread replies would send a reset instead
    TestClient busy(server.port());
    busy.send("busy\n");
    ASSERT_TRUE(eventually([&] { return sink.at_work() == 1; }));
    std::vector<std::string> expected{"busy\n"};
    std::string lines;
    for (int i = 0; i < 200; ++i) {
        expected.push_back(std::to_string(i) + "\n");
        lines += expected.back();
    }
    {
        TestClient client(server.port());
        client.send(lines);
    }
    sink.open();
    EXPECT_TRUE(eventually([&] { return sink.messages().size() == expected.size(); }));
    EXPECT_EQ(sink.messages(), expected);
    EXPECT_TRUE(eventually([&] { return server.server().clients() == 1; }));
}

TEST(HostileClients, AClientThatSendsALotAndClosesHasEverythingExecuted)
{
    RecordingSink sink([](int socket, const std::string& message) {
        RecordingSink::answer(socket, message);
        RecordingSink::answer(socket, message); // the first is answered by a reset, the second fails
    });
    RunningServer server(sink);
    // It closes while another's message is executing, before its first reply: closing with unread replies
    // would send a reset instead.
    sink.shut();
    TestClient busy(server.port());
    busy.send("busy\n");
    ASSERT_TRUE(eventually([&] { return sink.at_work() == 1; }));
    constexpr size_t kLines = 10'000;
    std::string lines;
    for (size_t i = 0; i < kLines; ++i) {
        lines += std::to_string(i) + "\n";
    }
    {
        TestClient client(server.port());
        client.send(lines);
    }
    sink.open();
    EXPECT_TRUE(eventually([&] { return sink.messages().size() == 1 + kLines; })) << sink.messages().size();
}
