// Clients: connecting and leaving, their maximum number, turns and sockets.
#include <chrono>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "service_fixture.h"
#include "support/hislip_client.h"
#include "support/log_capture.h"
#include "support/loopback.h"
#include "whole_front.h"

using namespace orvan_service;
using namespace orvan_test;
using Texts = std::vector<std::string>;

TEST(Server, ALostClientIsReportedToTheSinkOnce)
{
    RecordingSink sink;
    RunningServer server(sink);
    TestClient client(server.port());
    client.ask("a\n");
    client.close();
    ASSERT_TRUE(eventually([&] { return sink.lost().size() == 1; }));
    EXPECT_EQ(server.server().clients(), 0u);
}

TEST(Server, ALostClientIsNotReportedDuringAnothersTurn)
{
    RecordingSink sink;
    RunningServer server(sink);
    TestClient lost(server.port());
    lost.ask("a\n");
    ASSERT_TRUE(eventually([&] { return sink.at_work() == 0; }));
    sink.shut();
    TestClient other(server.port());
    other.send("b\n");
    ASSERT_TRUE(eventually([&] { return sink.at_work() == 1; }));
    lost.close();
    EXPECT_TRUE(sink.lost().empty());
    sink.open();
    EXPECT_EQ(other.line(), "b;+OK\r\n");
    EXPECT_TRUE(eventually([&] { return sink.lost().size() == 1; }));
}

TEST(Server, DuringACommandClientsAreAcceptedOrRefusedAndLostClientsTakeNoPlace)
{
    RecordingSink sink;
    RunningServer server(sink, {.max_clients = 2, .own_places = 0});
    sink.shut();
    TestClient busy(server.port());
    busy.send("a\n");
    ASSERT_TRUE(eventually([&] { return sink.at_work() == 1; }));
    {
        TestClient vanishing(server.port());
        ASSERT_TRUE(eventually([&] { return server.server().clients() == 2; }));
        TestClient refused(server.port());
        EXPECT_EQ(refused.line(), "-ERR Too many clients;+OK\r\n");
    }
    TestClient taking_its_place(server.port());
    taking_its_place.send("x"); // still unread when it resets
    ASSERT_TRUE(eventually([&] { return server.server().clients() == 3; }));
    taking_its_place.reset();
    TestClient taking_that(server.port());
    taking_that.send("b\n");
    ASSERT_TRUE(eventually([&] { return server.server().clients() == 4; }));
    sink.open();
    EXPECT_EQ(busy.line(), "a;+OK\r\n");
    EXPECT_EQ(taking_that.line(), "b;+OK\r\n");
    EXPECT_TRUE(eventually([&] { return server.server().clients() == 2; }));
    EXPECT_TRUE(sink.lost().empty());
}

TEST(Server, ClientsThatComeAndGoDuringACommandDoNotUseUpTheDescriptors)
{
    RecordingSink sink;
    RunningServer server(sink, {.max_clients = 4, .own_places = 0});
    sink.shut();
    TestClient busy(server.port());
    busy.send("a\n");
    ASSERT_TRUE(eventually([&] { return sink.at_work() == 1; }));
    for (int i = 0; i < 50; ++i) {
        TestClient passing(server.port());
    }
    TestClient last(server.port());
    EXPECT_EQ(last.line(), "-ERR Too many clients;+OK\r\n");
    EXPECT_LE(server.server().clients(), 2u * 4);
    sink.open();
    EXPECT_EQ(busy.line(), "a;+OK\r\n");
    EXPECT_TRUE(eventually([&] { return server.server().clients() == 1; }));
}

TEST(Server, AClientAboveTheLimitIsRefusedUntilAPlaceIsFree)
{
    RecordingSink sink;
    RunningServer server(sink, {.max_clients = 2, .own_places = 0});
    TestClient first(server.port());
    TestClient second(server.port());
    EXPECT_EQ(first.ask("a\n"), "a;+OK\r\n");
    EXPECT_EQ(second.ask("b\n"), "b;+OK\r\n");
    TestClient third(server.port());
    EXPECT_EQ(third.line(), "-ERR Too many clients;+OK\r\n");
    EXPECT_TRUE(third.sees_end());
    EXPECT_EQ(first.ask("a\n"), "a;+OK\r\n");
    second.close();
    ASSERT_TRUE(eventually([&] { return server.server().clients() == 1; }));
    TestClient fourth(server.port());
    EXPECT_EQ(fourth.ask("d\n"), "d;+OK\r\n");
}

TEST(Server, TwoHundredClientsAtOnceEachGetTheirOwnReplies)
{
    constexpr int kClients = 200;
    constexpr int kMessages = 5;
    RecordingSink sink;
    RunningServer server(sink, {.max_clients = 256});
    std::vector<TestClient> clients;
    for (int i = 0; i < kClients; ++i) {
        clients.emplace_back(server.port());
    }
    for (int round = 0; round < kMessages; ++round) {
        for (int i = 0; i < kClients; ++i) {
            clients[static_cast<size_t>(i)].send(std::to_string(round * kClients + i) + "\n");
        }
    }
    for (int round = 0; round < kMessages; ++round) {
        for (int i = 0; i < kClients; ++i) {
            ASSERT_EQ(clients[static_cast<size_t>(i)].line(),
                      std::to_string(round * kClients + i) + ";+OK\r\n");
        }
    }
    EXPECT_EQ(server.server().clients(), size_t{kClients});
    EXPECT_EQ(sink.overlaps(), 0u);
    EXPECT_EQ(sink.messages().size(), size_t{kClients * kMessages});
}

TEST(Server, OwnConnectionsAreAcceptedByAFullServer)
{
    RecordingSink sink;
    RunningServer server(sink, {.max_clients = 2, .own_places = 1});
    OtherProcess others(server.port(), 2);
    ASSERT_TRUE(eventually([&] { return server.server().clients() == 2; }));
    OtherProcess refused(server.port(), 1);
    EXPECT_EQ(refused.first_line(), "-ERR Too many clients;+OK\r\n");
    TestClient own(server.port());
    EXPECT_EQ(own.ask("a\n"), "a;+OK\r\n");
    TestClient one_too_many(server.port());
    EXPECT_EQ(one_too_many.line(), "-ERR Too many clients;+OK\r\n");
}

TEST(Server, OwnConnectionsTakeNoOtherClientsPlace)
{
    RecordingSink sink;
    RunningServer server(sink, {.max_clients = 2, .own_places = 1});
    TestClient own(server.port());
    EXPECT_EQ(own.ask("a\n"), "a;+OK\r\n");
    OtherProcess others(server.port(), 2);
    EXPECT_TRUE(eventually([&] { return server.server().clients() == 3; }));
    OtherProcess refused(server.port(), 1);
    EXPECT_EQ(refused.first_line(), "-ERR Too many clients;+OK\r\n");
}

TEST(Server, AClientWithAThousandLinesDelaysTheOthersByOneMessageEach)
{
    RecordingSink sink;
    sink.shut();
    RunningServer server(sink);
    TestClient flooding(server.port());
    std::string lines;
    for (int i = 0; i < 1000; ++i) {
        lines += "f\n";
    }
    flooding.send(lines);
    ASSERT_TRUE(eventually([&] { return sink.at_work() == 1; }));
    std::vector<TestClient> others;
    for (int i = 0; i < 3; ++i) {
        others.emplace_back(server.port());
        others.back().send(std::to_string(i) + "\n" + std::to_string(i) + "\n");
    }
    ASSERT_TRUE(eventually([&] { return server.server().clients() == 4; }));
    sink.open();
    for (auto& other : others) {
        other.line();
        other.line();
    }
    const Texts order = sink.messages();
    ASSERT_GE(order.size(), 8u);
    const std::multiset<std::string> first_round(order.begin() + 1, order.begin() + 4);
    EXPECT_EQ(first_round, (std::multiset<std::string>{"0\n", "1\n", "2\n"}));
    const std::multiset<std::string> second_round(order.begin() + 4, order.begin() + 8);
    EXPECT_EQ(second_round, (std::multiset<std::string>{"0\n", "1\n", "2\n", "f\n"}));
}

TEST(Server, AMessageThatWasThereFirstIsExecutedFirst)
{
    std::unique_ptr<TestClient> late;
    RecordingSink sink([&](int socket, const std::string& message) {
        if (message == "long\n") {
            late->send("late\n");
            std::this_thread::sleep_for(std::chrono::milliseconds(30)); // the command's duration
        }
        RecordingSink::answer(socket, message);
    });
    RunningServer server(sink);
    late = std::make_unique<TestClient>(server.port());
    EXPECT_EQ(late->ask("a\n"), "a;+OK\r\n");
    sink.shut();
    TestClient busy(server.port());
    busy.send("busy\n");
    ASSERT_TRUE(eventually([&] { return sink.at_work() == 1; }));
    TestClient two(server.port());
    two.send("first\nsecond\n");
    ASSERT_TRUE(eventually([&] { return server.server().clients() == 3; }));
    TestClient one(server.port());
    one.send("long\n");
    ASSERT_TRUE(eventually([&] { return server.server().clients() == 4; }));
    sink.open();
    EXPECT_EQ(late->line(), "late;+OK\r\n");
    EXPECT_EQ(sink.messages(), (Texts{"a\n", "busy\n", "first\n", "long\n", "second\n", "late\n"}));
}

TEST(Server, AClientsSocketSendsAtOnceAndBoundsItsWrites)
{
    int no_delay = 0;
    int keep_alive = 0;
    timeval send_timeout{};
    RecordingSink sink([&](int socket, const std::string& message) {
        socklen_t size = sizeof(int);
        ::getsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &no_delay, &size);
        ::getsockopt(socket, SOL_SOCKET, SO_KEEPALIVE, &keep_alive, &size);
        size = sizeof send_timeout;
        ::getsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &send_timeout, &size);
        RecordingSink::answer(socket, message);
    });
    RunningServer server(sink);
    TestClient client(server.port());
    client.ask("a\n");
    EXPECT_NE(no_delay, 0);
    EXPECT_NE(keep_alive, 0);
    EXPECT_EQ(send_timeout.tv_sec, 0);
    // The kernel rounds it to its ticks.
    EXPECT_NEAR(static_cast<double>(send_timeout.tv_usec), 300'000, 10'000);
}

TEST(Server, AClientsSocketIsNotInheritedByStartedPrograms)
{
    int flags = 0;
    RecordingSink sink([&](int socket, const std::string& message) {
        flags = ::fcntl(socket, F_GETFD);
        RecordingSink::answer(socket, message);
    });
    RunningServer server(sink);
    TestClient client(server.port());
    client.ask("a\n");
    EXPECT_NE(flags & FD_CLOEXEC, 0);
}

TEST(Server, ServesAClientLaterWhenNoDescriptorIsLeft)
{
    LogCapture log;
    RecordingSink sink;
    RunningServer server(sink);
    TestClient client(server.port()); // its socket is created while descriptors are left
    EXPECT_EQ(client.ask("a\n"), "a;+OK\r\n");
    std::vector<orvan_common::UniqueFd> hoard;
    const auto begin = std::chrono::steady_clock::now();
    const int late = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit small{64, limit.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &small);
    for (int fd = ::dup(0); fd >= 0; fd = ::dup(0)) {
        hoard.emplace_back(fd);
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(server.port()));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::connect(late, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_TRUE(log.wait_for(LOG_ERR, "accept: Too many open files"));
    EXPECT_EQ(client.ask("b\n"), "b;+OK\r\n");
    const auto passed = std::chrono::steady_clock::now() - begin;
    EXPECT_LT(log.lines().size(), static_cast<size_t>(passed / std::chrono::milliseconds(100)) + 10)
        << "it spins";
    hoard.clear();
    ::setrlimit(RLIMIT_NOFILE, &limit);
    ASSERT_EQ(::send(late, "c\n", 2, 0), 2);
    EXPECT_EQ(read_until(late, "\r\n"), "c;+OK\r\n");
    ::close(late);
}

TEST(ServerPlaces, SessionsOfOtherProtocolsTakeNone)
{
    const LogCapture log;
    RecordingSink sink;
    WholeFront front(sink, {.max_clients = 2, .own_places = 0});
    const HislipClient first(front.hislip_port);
    const HislipClient second(front.hislip_port);
    const HislipClient third(front.hislip_port);
    TestClient raw(front.raw_port);
    TestClient other(front.raw_port);
    EXPECT_EQ(raw.ask("*IDN?\n"), "*IDN?;+OK\r\n");
    EXPECT_EQ(other.ask("*IDN?\n"), "*IDN?;+OK\r\n");
    EXPECT_EQ(TestClient(front.raw_port).line(), "-ERR Too many clients;+OK\r\n");
}
