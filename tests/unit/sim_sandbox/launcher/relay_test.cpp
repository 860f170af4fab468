#include <string>

#include <sys/socket.h>

#include <gtest/gtest.h>

#include "sockets.h"
#include "udp_relay.h"

using namespace orvan_launcher;
using orvan_common::UniqueFd;

namespace {

/** A relay between loopback sockets; the test acts as the clients and the server. */
struct Bench {
    UniqueFd server{bind_udp("127.0.0.1", 0)};
    int port = 0;
    int connections = 0;
    std::string address = "127.0.0.1"; /**< of the server */
    UdpRelay relay;

    Bench()
        : relay(
              make_outer(), [this] { return address; },
              [this](const std::string& to) {
                  ++connections;
                  return connect_udp(to, port_of(server.get()));
              })
    {
    }

    UniqueFd make_outer()
    {
        UniqueFd outer(bind_udp("127.0.0.1", 0));
        port = port_of(outer.get());
        return outer;
    }

    /** Waits for traffic and relays it. */
    void work()
    {
        std::vector<pollfd> waiting;
        relay.add_to(waiting);
        EXPECT_GT(poll(waiting.data(), waiting.size(), 5000), 0);
        relay.transfer();
    }

    UniqueFd client() const { return UniqueFd(connect_udp("127.0.0.1", port)); }
};

std::string receive(int fd, sockaddr_in& from)
{
    char text[100];
    socklen_t size = sizeof from;
    const ssize_t count =
        ::recvfrom(fd, text, sizeof text, MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&from), &size);
    return count < 0 ? "(nothing)" : std::string(text, static_cast<size_t>(count));
}

void say(int fd, const std::string& text)
{
    EXPECT_EQ(send(fd, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
}

void answer(int fd, const std::string& text, const sockaddr_in& to)
{
    EXPECT_EQ(sendto(fd, text.data(), text.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to),
              static_cast<ssize_t>(text.size()));
}

} // namespace

TEST(UdpRelay, RepliesReachTheRequestingClient)
{
    Bench bench;
    const UniqueFd first = bench.client();
    const UniqueFd second = bench.client();
    sockaddr_in first_way = {};
    sockaddr_in second_way = {};
    say(first.get(), "one");
    bench.work();
    EXPECT_EQ(receive(bench.server.get(), first_way), "one");
    say(second.get(), "two");
    bench.work();
    EXPECT_EQ(receive(bench.server.get(), second_way), "two");
    answer(bench.server.get(), "to two", second_way);
    bench.work();
    answer(bench.server.get(), "to one", first_way);
    bench.work();
    sockaddr_in from = {};
    EXPECT_EQ(receive(first.get(), from), "to one");
    EXPECT_EQ(receive(second.get(), from), "to two");
    EXPECT_EQ(ntohs(from.sin_port), bench.port);
}

TEST(UdpRelay, ClientKeepsItsRouteAcrossDatagrams)
{
    Bench bench;
    const UniqueFd client = bench.client();
    sockaddr_in way = {};
    for (const char* text : {"a", "", "c"}) {
        say(client.get(), text);
        bench.work();
        EXPECT_EQ(receive(bench.server.get(), way), text);
    }
    EXPECT_EQ(bench.connections, 1);
}

TEST(UdpRelay, TheLongestIdleClientLosesItsPlace)
{
    Bench bench;
    sockaddr_in way = {};
    std::vector<UniqueFd> clients;
    for (size_t index = 0; index < UdpRelay::kMaxClients; ++index) {
        clients.push_back(bench.client());
        say(clients.back().get(), "x");
        bench.work();
        receive(bench.server.get(), way);
    }
    const auto talk = [&](const UniqueFd& client) {
        say(client.get(), "again");
        bench.work();
        EXPECT_EQ(receive(bench.server.get(), way), "again");
    };
    talk(clients[0]);
    EXPECT_EQ(bench.connections, static_cast<int>(UdpRelay::kMaxClients));
    const UniqueFd one_more = bench.client();
    talk(one_more);
    EXPECT_EQ(bench.connections, static_cast<int>(UdpRelay::kMaxClients) + 1);
    talk(clients[0]);
    EXPECT_EQ(bench.connections, static_cast<int>(UdpRelay::kMaxClients) + 1);
    talk(clients[1]);
    EXPECT_EQ(bench.connections, static_cast<int>(UdpRelay::kMaxClients) + 2);
}

TEST(UdpRelay, ClientsReachAServerThatChangedItsAddress)
{
    Bench bench;
    const UniqueFd client = bench.client();
    sockaddr_in way = {};
    say(client.get(), "before");
    bench.work();
    EXPECT_EQ(receive(bench.server.get(), way), "before");
    const int port = port_of(bench.server.get());
    bench.server.reset();
    bench.server.reset(bind_udp("127.0.0.9", port));
    bench.address = "127.0.0.9";
    say(client.get(), "after");
    bench.work();
    ASSERT_EQ(receive(bench.server.get(), way), "after");
    answer(bench.server.get(), "reply", way);
    bench.work();
    sockaddr_in from = {};
    EXPECT_EQ(receive(client.get(), from), "reply");
    EXPECT_EQ(bench.connections, 2);
}

TEST(UdpRelay, AServerWithoutAnAddressGetsNothingUntilItHasOneAgain)
{
    Bench bench;
    const UniqueFd client = bench.client();
    sockaddr_in way = {};
    bench.address = "";
    say(client.get(), "lost");
    bench.work();
    EXPECT_EQ(receive(bench.server.get(), way), "(nothing)");
    bench.address = "127.0.0.1";
    say(client.get(), "arrives");
    bench.work();
    EXPECT_EQ(receive(bench.server.get(), way), "arrives");
}

TEST(Sockets, ReportTheAddressOfAnInterface)
{
    const UniqueFd any(bind_udp("127.0.0.1", 0));
    EXPECT_EQ(interface_address(any.get(), "lo"), "127.0.0.1");
    EXPECT_EQ(interface_address(any.get(), "nowhere0"), "");
    EXPECT_EQ(interface_address(any.get(), "a-name-that-no-interface-can-have"), "");
}
