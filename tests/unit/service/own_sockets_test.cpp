#include <string>
#include <thread>
#include <vector>

#include <sys/socket.h>
#include <sys/wait.h>
#include <syslog.h>

#include <gtest/gtest.h>

#include "service/listener.h"
#include "service/own_sockets.h"
#include "service_fixture.h"
#include "support/log_capture.h"
#include "support/loopback.h"

using namespace orvan_service;
using namespace orvan_test;
using orvan_common::UniqueFd;

TEST(OwnSockets, BothEndsOfAConnectionWithinTheProcessAreFound)
{
    for (const char* const address : {"127.0.0.1", "127.0.5.1"}) {
        const auto listeners = open_listeners(address, 0);
        const UniqueFd client(connect_to_loopback(address, local_port(listeners.front().get())));
        ASSERT_TRUE(client) << address;
        const UniqueFd server(::accept4(listeners.front().get(), nullptr, nullptr, SOCK_CLOEXEC));
        ASSERT_TRUE(server) << address;
        const OwnSockets own;
        EXPECT_TRUE(own.at_other_end_of(server.get())) << address;
        EXPECT_TRUE(own.at_other_end_of(client.get())) << address;
        EXPECT_FALSE(own.at_other_end_of(listeners.front().get())) << address;
    }
}

TEST(OwnSockets, AConnectionOfAnotherProcessIsNotFound)
{
    const auto listeners = open_listeners("127.0.0.1", 0);
    const int port = local_port(listeners.front().get());
    UniqueFd client(connect_to_loopback("127.0.0.1", port));
    const pid_t other = ::fork(); // only holds the client's end open
    if (other == 0) {
        ::pause();
        ::_exit(0);
    }
    ASSERT_GT(other, 0);
    client = {};
    const UniqueFd server(::accept4(listeners.front().get(), nullptr, nullptr, SOCK_CLOEXEC));
    ASSERT_TRUE(server);
    EXPECT_FALSE(OwnSockets().at_other_end_of(server.get()));
    ::kill(other, SIGKILL);
    EXPECT_EQ(::waitpid(other, nullptr, 0), other);
}

TEST(OwnSockets, AnUnconnectedSocketIsNotFound)
{
    const UniqueFd unconnected(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    int pair[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
    const UniqueFd one(pair[0]);
    const UniqueFd two(pair[1]);
    const OwnSockets own;
    EXPECT_FALSE(own.at_other_end_of(unconnected.get()));
    EXPECT_FALSE(own.at_other_end_of(one.get()));
    EXPECT_FALSE(own.at_other_end_of(-1));
}

// The front panel and the temperature poll send one message each.
TEST(OwnSockets, ShortOwnConnectionsAreNeverRefusedAndTakeNoOtherClientsPlace)
{
    LogCapture log;
    RecordingSink sink;
    const ServerLimits limits;
    RunningServer server(sink, limits);
    {
        OtherProcess others(server.port(), static_cast<int>(limits.max_clients));
        ASSERT_TRUE(eventually([&] { return server.server().clients() == limits.max_clients; }));
        std::vector<std::thread> own_clients;
        for (int i = 0; i < 4; ++i) {
            own_clients.emplace_back([&] {
                for (int round = 0; round < 100; ++round) {
                    TestClient own(server.port());
                    ASSERT_EQ(own.ask("a\n"), "a;+OK\r\n") << round;
                    if (round % 3 == 0) {
                        own.reset();
                    }
                }
            });
        }
        for (std::thread& client : own_clients) {
            client.join();
        }
        for (const LogLine& line : log.lines()) {
            EXPECT_EQ(line.text.find("refused"), std::string::npos) << line.text;
        }
        EXPECT_TRUE(eventually([&] { return server.server().clients() == limits.max_clients; }));
        OtherProcess refused(server.port(), 1);
        EXPECT_EQ(refused.first_line(), "-ERR Too many clients;+OK\r\n");
        EXPECT_EQ(log.count(LOG_WARNING, "client refused: Too many clients"), 1u);
    }
    EXPECT_TRUE(eventually([&] { return server.server().clients() == 0; }));
    // All places are free again.
    OtherProcess others(server.port(), static_cast<int>(limits.max_clients));
    EXPECT_TRUE(eventually([&] { return server.server().clients() == limits.max_clients; }));
    EXPECT_EQ(log.count(LOG_WARNING, "client refused: Too many clients"), 1u);
}
