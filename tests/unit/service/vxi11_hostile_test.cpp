// Peers that break the rules of RPC, or use them to the limit, and those that call without waiting.
#include <random>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include "service/vxi11/rpc_message.h"
#include "support/loopback.h"
#include "vxi11_fixture.h"

using namespace orvan_service;
using namespace orvan_test;
using namespace std::string_literals;
using orvan_common::UniqueFd;

namespace {

class Vxi11HostileTest : public ::testing::Test {
protected:
    UniqueFd connection(const std::string& from = {}) const
    {
        return UniqueFd(connect_to_loopback("127.0.0.1", vxi11.port(), from));
    }
    static void send(const UniqueFd& socket, const std::string& bytes)
    {
        ASSERT_EQ(::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }
    /** Another client is served. */
    void expect_service()
    {
        Vxi11Client client(vxi11.port());
        EXPECT_EQ(client.create().error, 0);
        EXPECT_EQ(client.ask("A?"), "A?\n");
    }
    template <typename Parameters>
    static std::string call(uint32_t xid, uint32_t procedure, XdrRoutine<Parameters> routine,
                            const Parameters& parameters)
    {
        return rpc_record(rpc_call({xid, DEVICE_CORE, 1, procedure, encode(routine, parameters)}));
    }
    /** A connection's link, made with xid 1. */
    static int link_of(const UniqueFd& socket)
    {
        Create_LinkParms parameters{0, 0, 0, const_cast<char*>("inst0")};
        send(socket, call(1, CREATE_LINK, ::xdr_Create_LinkParms, parameters));
        const std::string reply = read_exactly(socket.get(), 44);
        EXPECT_EQ(reply.substr(0, 32),
                  "\x80\0\0\x28\0\0\0\1\0\0\0\1\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"s);
        return static_cast<unsigned char>(reply.at(35));
    }
    static std::string write(uint32_t xid, int link, std::string data)
    {
        Device_WriteParms parameters{link, 1000, 0, kEnd, {}};
        parameters.data = {static_cast<u_int>(data.size()), data.data()};
        return call(xid, DEVICE_WRITE, ::xdr_Device_WriteParms, parameters);
    }
    static std::string read(uint32_t xid, int link)
    {
        return call(xid, DEVICE_READ, ::xdr_Device_ReadParms,
                    Device_ReadParms{link, 1 << 20, 60'000, 0, 0, 0});
    }

    LogCapture log;
    RunningVxi11 vxi11;
};

/** The head of a reply of `size` bytes with an error code of 0. */
std::string reply_head(char size, char xid)
{
    return "\x80\0\0"s + size + "\0\0\0"s + xid + "\0\0\0\1"s + std::string(16, '\0') + std::string(4, '\0');
}

} // namespace

TEST_F(Vxi11HostileTest, RepliesHaveTheBytesOfTheInterface)
{
    const UniqueFd client = connection();
    const int link = link_of(client);
    send(client, write(2, link, "AB?"));
    EXPECT_EQ(read_exactly(client.get(), 36), reply_head(32, 2) + "\0\0\0\3"s);
    send(client, read(3, link));
    EXPECT_EQ(read_exactly(client.get(), 44), reply_head(40, 3) + "\0\0\0\4\0\0\0\4AB?\n"s);
}

TEST_F(Vxi11HostileTest, HalfARecordHoldsNobodyUp)
{
    const UniqueFd client = connection();
    const int link = link_of(client);
    const std::string whole = write(2, link, "A?");
    for (size_t i = 0; i + 1 < whole.size(); ++i) {
        send(client, whole.substr(i, 1));
        if (i % 16 == 2) {
            expect_service();
        }
    }
    send(client, whole.substr(whole.size() - 1));
    EXPECT_EQ(read_exactly(client.get(), 36), reply_head(32, 2) + "\0\0\0\2"s);
}

TEST_F(Vxi11HostileTest, AHugeRecordEndsItsConnectionOnly)
{
    for (const std::string& mark : {"\xFF\xFF\xFF\xFF"s, "\x7F\xFF\xFF\xFF"s, "\x80\x10\x08\x00"s}) {
        const UniqueFd client = connection();
        send(client, mark);
        EXPECT_TRUE(sees_end(client.get()));
    }
    EXPECT_EQ(log.count(LOG_WARNING, "VXI-11: connection closed: an RPC record is too long"), 3u);
    expect_service();
}

TEST_F(Vxi11HostileTest, WhatIsNoCallEndsItsConnection)
{
    for (const std::string& bytes : {"\x80\0\0\0"s, "\x80\0\0\4*IDN"s, "GET / HTTP/1.1\r\n\r\n"s}) {
        const UniqueFd client = connection();
        send(client, bytes);
        EXPECT_TRUE(sees_end(client.get()));
    }
    EXPECT_EQ(log.count(LOG_WARNING, "VXI-11: connection closed: what it sent is no RPC call"), 2u);
    expect_service();
}

TEST_F(Vxi11HostileTest, GarbageNeverReachesTheInstrument)
{
    std::minstd_rand random(16);
    for (int round = 0; round < 300; ++round) {
        const UniqueFd client = connection();
        std::string bytes = write(2, 1, "A?");
        if (round % 2 == 0) {
            for (char& byte : bytes) {
                byte = static_cast<char>(random());
            }
        } else {
            bytes[random() % 44] = static_cast<char>(random()); // of the headers
            bytes.resize(1 + random() % bytes.size());
        }
        ::send(client.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
    expect_service();
    EXPECT_EQ(vxi11.instrument.texts().size(), 1u);
}

TEST_F(Vxi11HostileTest, ACallEndsTheOneOfItsLinkThatWaits)
{
    const UniqueFd client = connection();
    const int link = link_of(client);
    vxi11.instrument.shut();
    send(client, write(2, link, "A?") + read(3, link) + read(4, link));
    EXPECT_EQ(read_exactly(client.get(), 36), reply_head(32, 2) + "\0\0\0\2"s);
    std::string aborted = reply_head(36, 3) + std::string(8, '\0');
    aborted[31] = 23;
    EXPECT_EQ(read_exactly(client.get(), aborted.size()), aborted);
    vxi11.instrument.open();
    // The response goes to the call that still waits.
    EXPECT_EQ(read_exactly(client.get(), 44), reply_head(40, 4) + "\0\0\0\4\0\0\0\3A?\n\0"s);
}

TEST_F(Vxi11HostileTest, ACallOfOneLinkLeavesThatOfAnotherWaiting)
{
    const UniqueFd client = connection();
    const int first = link_of(client);
    const int second = link_of(client);
    vxi11.instrument.shut();
    send(client, write(2, first, "A?") + read(3, first) + write(4, second, "B"));
    EXPECT_EQ(read_exactly(client.get(), 72),
              reply_head(32, 2) + "\0\0\0\2"s + reply_head(32, 4) + "\0\0\0\1"s);
    vxi11.instrument.open();
    EXPECT_EQ(read_exactly(client.get(), 44), reply_head(40, 3) + "\0\0\0\4\0\0\0\3A?\n\0"s);
}

TEST_F(Vxi11HostileTest, ACallForALinkStillBeingCreatedEndsItsCreation)
{
    Vxi11Client holder(vxi11.port());
    EXPECT_EQ(holder.create("inst0", true).error, 0);
    const UniqueFd client = connection();
    const int guessed = link_of(client) + 1;
    const Create_LinkParms locked{0, 1, 20'000, const_cast<char*>("inst0")};
    send(client, call(2, CREATE_LINK, ::xdr_Create_LinkParms, locked) + write(3, guessed, "A?"));
    std::string refused = reply_head(40, 2) + std::string(12, '\0');
    refused[31] = 11;
    EXPECT_EQ(read_exactly(client.get(), refused.size()), refused);
    std::string unknown = reply_head(32, 3) + std::string(4, '\0');
    unknown[31] = 4;
    EXPECT_EQ(read_exactly(client.get(), unknown.size()), unknown);
}

TEST_F(Vxi11HostileTest, RepliesThatAreNotReadHoldOnlyTheirClientUp)
{
    const std::string text(900'000, 'x');
    vxi11.instrument.answer_with([&](int&, const std::string& message) {
        return message == "A?" ? message + ";+OK\r\n" : text + ";+OK\r\n";
    });
    const UniqueFd client = connection();
    // Together far more than the sockets' buffers hold. Nothing comes from the client after the calls.
    std::vector<int> links(20);
    std::string reads;
    for (int& link : links) {
        link = link_of(client);
        send(client, write(2, link, "X?"));
        EXPECT_EQ(read_exactly(client.get(), 36), reply_head(32, 2) + "\0\0\0\2"s);
        reads += read(3, link);
    }
    send(client, reads);
    expect_service();
    // Read at last, every call has its reply.
    std::string received;
    size_t replies = 0;
    EXPECT_TRUE(eventually([&] {
        received += read_ready(client.get());
        while (received.size() >= 32) {
            EXPECT_EQ(received.substr(4, 28), reply_head(0, 3).substr(4));
            const size_t size = static_cast<size_t>(static_cast<unsigned char>(received[1])) << 16 |
                                static_cast<size_t>(static_cast<unsigned char>(received[2])) << 8 |
                                static_cast<unsigned char>(received[3]);
            if (received.size() < 4 + size) {
                break;
            }
            received.erase(0, 4 + size);
            ++replies;
        }
        return replies == links.size();
    })) << replies;
}

TEST_F(Vxi11HostileTest, ConnectionsWithoutLinksMakeRoomForOthers)
{
    Vxi11Client first(vxi11.port());
    EXPECT_EQ(first.create().error, 0);
    std::vector<UniqueFd> idle;
    for (int i = 0; i < 100; ++i) {
        idle.push_back(connection());
    }
    expect_service();
    EXPECT_EQ(first.ask("A?"), "A?\n");
    EXPECT_TRUE(sees_end(idle.front().get()));
    EXPECT_GE(log.count(LOG_WARNING, "VXI-11: too many connections: one that was not in use is closed"), 60u);
}

TEST_F(Vxi11HostileTest, WithoutDescriptorsOthersAreServedAndTheNextWaits)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP()
        << "UndefinedBehaviorSanitizer takes objects for invalid when it has no descriptors to examine them";
#endif
    Vxi11Client client(vxi11.port());
    EXPECT_EQ(client.create().error, 0);
    const UniqueFd waiting(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    rlimit before{};
    ::getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{static_cast<rlim_t>(waiting.get() + 1), before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    name.sin_port = htons(vxi11.port());
    EXPECT_EQ(::connect(waiting.get(), reinterpret_cast<sockaddr*>(&name), sizeof name), 0);
    EXPECT_TRUE(log.wait_for(LOG_ERR, "VXI-11: accept: Too many open files"));
    EXPECT_EQ(client.ask("A?"), "A?\n");
    EXPECT_EQ(client.create().error, 9);
    EXPECT_EQ(log.count(LOG_ERR, "VXI-11: link refused: eventfd: Too many open files"), 1u);
    EXPECT_LE(log.count(LOG_ERR, "VXI-11: accept: Too many open files"), 100u); // no busy loop
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_GT(link_of(waiting), 0);
}

TEST_F(Vxi11HostileTest, ConnectionsAreWatchedForADeadPeer)
{
    const UniqueFd client = connection();
    link_of(client);
    // The server's end is a descriptor of this process.
    int found = 0;
    for (int fd = 3; fd < 200; ++fd) {
        sockaddr_in peer{};
        sockaddr_in own{};
        socklen_t size = sizeof peer;
        socklen_t own_size = sizeof own;
        ::getsockname(client.get(), reinterpret_cast<sockaddr*>(&own), &own_size);
        if (::getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &size) == 0 &&
            peer.sin_port == own.sin_port) {
            int on = 0;
            socklen_t option_size = sizeof on;
            EXPECT_EQ(::getsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, &option_size), 0);
            EXPECT_EQ(on, 1);
            EXPECT_EQ(::fcntl(fd, F_GETFD), FD_CLOEXEC);
            ++found;
        }
    }
    EXPECT_EQ(found, 1);
}
