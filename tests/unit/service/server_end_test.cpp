// The end of the server, and its waiting clients.
#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "service_fixture.h"
#include "support/loopback.h"

using namespace orvan_service;
using namespace orvan_test;
using Texts = std::vector<std::string>;

TEST(ServerEnd, ClientsAreClosedAndNoDescriptorIsLeft)
{
    RecordingSink sink;
    const size_t descriptors = open_descriptors();
    {
        RunningServer server(sink);
        TestClient idle(server.port());
        TestClient midway(server.port());
        EXPECT_EQ(idle.ask("a\n"), "a;+OK\r\n");
        EXPECT_EQ(midway.ask("a\n"), "a;+OK\r\n");
        midway.send(":FREQ");
        server.stop_accepting();
        EXPECT_TRUE(server.server().end(std::chrono::seconds(10)));
        EXPECT_EQ(server.server().clients(), 0u);
        EXPECT_TRUE(idle.sees_end());
        EXPECT_TRUE(midway.sees_end());
    }
    EXPECT_EQ(open_descriptors(), descriptors);
}

TEST(ServerEnd, TheRunningMessageFinishesAndWaitingOnesAreDropped)
{
    RecordingSink sink;
    sink.shut();
    RunningServer server(sink);
    TestClient at_work(server.port());
    at_work.send("first\nsecond\n");
    ASSERT_TRUE(eventually([&] { return sink.at_work() == 1; }));
    TestClient waiting(server.port(), 0, "127.0.0.2");
    waiting.send("third\n");
    ASSERT_TRUE(eventually([&] { return server.server().clients() == 2; }));
    server.stop_accepting();
    EXPECT_FALSE(server.server().end(std::chrono::milliseconds(1)));
    sink.open();
    EXPECT_TRUE(server.server().end(std::chrono::seconds(10)));
    EXPECT_EQ(at_work.line(), "first;+OK\r\n");
    EXPECT_EQ(at_work.line(), "");
    EXPECT_EQ(waiting.line(), "");
    EXPECT_EQ(sink.messages(), Texts{"first\n"});
}

// The library's temperature poll takes a closed connection for an answer.
TEST(ServerEnd, ALocalConnectionWaitingForItsFirstTurnStaysOpenUntilDestruction)
{
    RecordingSink sink;
    std::optional<RunningServer> server(std::in_place, sink);
    TestClient at_work(server->port());
    TestClient served(server->port());
    EXPECT_EQ(served.ask("*IDN?\n"), "*IDN?;+OK\r\n");
    ASSERT_TRUE(eventually([&] { return sink.at_work() == 0; }));
    sink.shut();
    at_work.send("first\n");
    ASSERT_TRUE(eventually([&] { return sink.at_work() == 1; }));
    TestClient waiting(server->port());
    waiting.send("second\n");
    TestClient remote(server->port(), 0, "127.0.0.2");
    remote.send("third\n");
    TestClient silent(server->port());
    ASSERT_TRUE(eventually([&] { return server->server().clients() == 5; }));
    server->stop_accepting();
    EXPECT_FALSE(server->server().end(std::chrono::milliseconds(1)));
    sink.open();
    EXPECT_TRUE(server->server().end(std::chrono::seconds(10)));
    EXPECT_EQ(at_work.line(), "first;+OK\r\n");
    EXPECT_TRUE(at_work.sees_end());
    EXPECT_TRUE(served.sees_end());
    EXPECT_TRUE(remote.sees_end());
    EXPECT_FALSE(waiting.sees_end(std::chrono::milliseconds(200)));
    EXPECT_FALSE(silent.sees_end(std::chrono::milliseconds(200)));
    server.reset();
    EXPECT_TRUE(waiting.sees_end());
    EXPECT_TRUE(silent.sees_end());
    EXPECT_EQ(sink.messages(), (Texts{"*IDN?\n", "first\n"}));
}

TEST(ServerEnd, ReturnsFalseWhenAMessageOutlastsTheTimeOut)
{
    RecordingSink sink;
    sink.shut();
    RunningServer server(sink);
    TestClient client(server.port());
    client.send("a\n");
    ASSERT_TRUE(eventually([&] { return sink.at_work() == 1; }));
    server.stop_accepting();
    EXPECT_FALSE(server.server().end(std::chrono::milliseconds(20)));
    sink.open();
}

TEST(ServerEnd, AConnectionNotYetAcceptedStaysOpenAndUnansweredUntilDestruction)
{
    RecordingSink sink;
    std::optional<RunningServer> server(std::in_place, sink);
    server->stop_accepting();
    TestClient before(server->port());
    before.send("first\n");
    EXPECT_TRUE(server->server().end(std::chrono::seconds(1)));
    TestClient after(server->port());
    after.send("second\n");
    EXPECT_FALSE(before.sees_end(std::chrono::milliseconds(200)));
    EXPECT_FALSE(after.sees_end(std::chrono::milliseconds(200)));
    EXPECT_EQ(server->server().clients(), 0u);
    server.reset();
    EXPECT_TRUE(before.sees_end());
    EXPECT_TRUE(after.sees_end());
    EXPECT_EQ(sink.messages(), Texts{});
}
