// Service requests on the interrupt channel, whose RPC server is the test's.
#include <string>

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include "support/loopback.h"
#include "vxi11_fixture.h"

using namespace orvan_service;
using namespace orvan_test;
using namespace std::string_literals;

namespace {

constexpr uint32_t kLoopback = 0x7F000001;

/** Xid, the call of DEVICE_INTR_SRQ with `handle` and no credentials; without the mark of a record. */
std::string request(char xid, const std::string& handle)
{
    return "\0\0\0"s + xid + "\0\0\0\0\0\0\0\2\0\6\7\xB1\0\0\0\1\0\0\0\x1E"s + std::string(16, '\0') +
           "\0\0\0"s + static_cast<char>(handle.size()) + handle +
           std::string((4 - handle.size() % 4) % 4, '\0');
}

std::string record(const std::string& message)
{
    return "\x80\0\0"s + static_cast<char>(message.size()) + message;
}

class Vxi11InterruptTest : public ::testing::Test {
protected:
    Vxi11InterruptTest() { EXPECT_EQ(client.create().error, 0); }

    static Device_RemoteFunc target(int port, int family = DEVICE_TCP)
    {
        return {kLoopback, static_cast<u_short>(port), DEVICE_INTR, DEVICE_INTR_VERSION, family};
    }
    orvan_common::UniqueFd accepted()
    {
        pollfd waiting{listener.get(), POLLIN, 0};
        EXPECT_EQ(::poll(&waiting, 1, 20'000), 1);
        return orvan_common::UniqueFd(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    }

    LogCapture log;
    orvan_common::UniqueFd listener{listen_on_loopback()};
    const int port = local_port(listener.get());
    RunningVxi11 vxi11;
    Vxi11Client client{vxi11.port()};
};

} // namespace

TEST_F(Vxi11InterruptTest, ReportsARequestWithTheClientsHandle)
{
    EXPECT_EQ(client.create_interrupts(target(port)), 0);
    const orvan_common::UniqueFd channel = accepted();
    EXPECT_EQ(client.enable_requests(true, "handle"), 0);
    EXPECT_EQ(client.write("*SRE 16").error, 0);
    EXPECT_EQ(client.write("A?").error, 0);
    const std::string first = record(request(1, "handle"));
    EXPECT_EQ(read_exactly(channel.get(), first.size()), first);
    // It needs no reply, and takes one.
    const std::string reply = "\x80\0\0\x18\0\0\0\1\0\0\0\1\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"s;
    EXPECT_EQ(::send(channel.get(), reply.data(), reply.size(), 0), static_cast<ssize_t>(reply.size()));
    EXPECT_EQ(client.read_status(), std::pair(0, 64 | 16));
    EXPECT_EQ(client.read().data, "A?\n");
    EXPECT_EQ(client.enable_requests(true, std::string(40, 'h')), 0);
    EXPECT_EQ(client.write("B?").error, 0);
    const std::string second = record(request(2, std::string(40, 'h')));
    EXPECT_EQ(read_exactly(channel.get(), second.size()), second);
}

TEST_F(Vxi11InterruptTest, ReportsByDatagramsOnRequest)
{
    const orvan_common::UniqueFd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl(kLoopback);
    ASSERT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&name), sizeof name), 0);
    EXPECT_EQ(client.create_interrupts(target(local_port(socket.get()), DEVICE_UDP)), 0);
    EXPECT_EQ(client.enable_requests(true, "udp"), 0);
    EXPECT_EQ(client.write("*SRE 16;A?").error, 0);
    pollfd waiting{socket.get(), POLLIN, 0};
    ASSERT_EQ(::poll(&waiting, 1, 20'000), 1);
    char bytes[200];
    const ssize_t size = ::recv(socket.get(), bytes, sizeof bytes, 0);
    EXPECT_EQ(std::string(bytes, static_cast<size_t>(size)), request(1, "udp"));
}

TEST_F(Vxi11InterruptTest, ReportsOnlyWhereItIsEnabled)
{
    EXPECT_EQ(client.create_interrupts(target(port)), 0);
    const orvan_common::UniqueFd channel = accepted();
    EXPECT_EQ(client.enable_requests(true, "one"), 0);
    EXPECT_EQ(client.enable_requests(false, ""), 0);
    EXPECT_EQ(client.write("*SRE 16;A?").error, 0);
    EXPECT_EQ(client.read().data, "A?\n");
    const int first = client.link;
    EXPECT_EQ(client.create().error, 0);
    EXPECT_EQ(client.enable_requests(true, "two"), 0);
    EXPECT_EQ(client.write("*SRE 16;A?").error, 0);
    const std::string expected = record(request(1, "two"));
    EXPECT_EQ(read_exactly(channel.get(), expected.size()), expected);
    EXPECT_NE(first, client.link);
}

TEST_F(Vxi11InterruptTest, ConnectsOnlyToTheClientItself)
{
    Device_RemoteFunc other = target(port);
    other.hostAddr = 0x7F000002;
    EXPECT_EQ(client.create_interrupts(other), 21);
    other.hostAddr = 0;
    EXPECT_EQ(client.create_interrupts(other), 21);
    EXPECT_EQ(client.create_interrupts(target(0)), 21);
    pollfd waiting{listener.get(), POLLIN, 0};
    EXPECT_EQ(::poll(&waiting, 1, 0), 0);
    Vxi11Client from_there(vxi11.port(), "127.0.0.2");
    other.hostAddr = 0x7F000002;
    EXPECT_EQ(from_there.create_interrupts(other), 6); // nobody listens there
}

TEST_F(Vxi11InterruptTest, ThereIsOneChannelAConnection)
{
    EXPECT_EQ(client.destroy_interrupts(), 6);
    EXPECT_EQ(client.create_interrupts(target(port)), 0);
    const orvan_common::UniqueFd channel = accepted();
    EXPECT_EQ(client.create_interrupts(target(port)), 29);
    Vxi11Client other(vxi11.port());
    EXPECT_EQ(other.create_interrupts(target(port)), 0);
    const orvan_common::UniqueFd others = accepted();
    EXPECT_EQ(client.destroy_interrupts(), 0);
    EXPECT_TRUE(sees_end(channel.get()));
    EXPECT_EQ(client.destroy_interrupts(), 6);
    EXPECT_EQ(client.create_interrupts(target(port)), 0);
    other.close();
    EXPECT_TRUE(sees_end(others.get()));
}

TEST_F(Vxi11InterruptTest, AChannelThatTheClientClosesCanBeCreatedAgain)
{
    EXPECT_EQ(client.create_interrupts(target(port)), 0);
    accepted().reset();
    EXPECT_TRUE(eventually([&] { return client.create_interrupts(target(port)) == 0; }));
}

TEST_F(Vxi11InterruptTest, AnUnreachableOrUnknownTargetIsAnError)
{
    listener.reset();
    EXPECT_EQ(client.create_interrupts(target(port)), 6);
    EXPECT_EQ(client.destroy_interrupts(), 6);
    EXPECT_EQ(client.create_interrupts(target(port, 2)), 8);
    EXPECT_EQ(client.ask("A?"), "A?\n");
}

// A listener whose queue is full answers no connection request.
TEST_F(Vxi11InterruptTest, AConnectionThatIsNotAnsweredHoldsNobodyUpAndTimesOut)
{
    const orvan_common::UniqueFd deaf(listen_on_loopback("127.0.0.1", 0));
    const int deaf_port = local_port(deaf.get());
    std::vector<orvan_common::UniqueFd> fill;
    for (int i = 0; i < 3; ++i) {
        fill.emplace_back(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        sockaddr_in name{};
        name.sin_family = AF_INET;
        name.sin_addr.s_addr = htonl(kLoopback);
        name.sin_port = htons(static_cast<uint16_t>(deaf_port));
        static_cast<void>(::connect(fill.back().get(), reinterpret_cast<sockaddr*>(&name), sizeof name));
    }
    int error = 0;
    std::thread creator([&] { error = client.create_interrupts(target(deaf_port)); });
    Vxi11Client other(vxi11.port());
    EXPECT_EQ(other.create().error, 0);
    EXPECT_EQ(other.ask("A?"), "A?\n");
    creator.join();
    EXPECT_EQ(error, 6);
}
