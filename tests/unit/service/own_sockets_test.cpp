#include "service/own_sockets.h"

#include "service/listener.h"
#include "support/loopback.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/wait.h>

using namespace orvan_service;
using namespace orvan_test;

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
    const pid_t other = ::fork(); // has the client's end from now on, and nothing else to do
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
