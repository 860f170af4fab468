#include <chrono>
#include <fstream>
#include <thread>

#include <arpa/inet.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "front_end_bench.h"
#include "socket_tap.h"
#include "support/rendezvous.h"

using namespace orvan_test;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

/** A listener whose queue is full: further connections hang, as at an address that drops packets. */
class FullListener {
public:
    FullListener() : m_listener(listen_on_loopback("127.0.0.1", 0)), m_port(local_port(m_listener))
    {
        sockaddr_in peer{};
        peer.sin_family = AF_INET;
        peer.sin_port = htons(static_cast<uint16_t>(m_port));
        peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        for (int& fd : m_fillers) {
            fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
            static_cast<void>(::connect(fd, reinterpret_cast<const sockaddr*>(&peer), sizeof peer));
        }
    }

    ~FullListener()
    {
        if (m_refuser.joinable()) {
            m_refuser.join();
        } else {
            ::close(m_listener);
        }
        for (int fd : m_fillers) {
            ::close(fd);
        }
    }

    int port() const { return m_port; }

    /** Waits until one more connection hangs, then ends the listener: the next SYN is refused. */
    void refuse_next()
    {
        m_refuser = std::thread([this, before = hanging()] {
            const auto deadline = steady_clock::now() + std::chrono::seconds(4);
            while (hanging() <= before && steady_clock::now() < deadline) {
                std::this_thread::sleep_for(milliseconds(5));
            }
            ::close(m_listener);
        });
    }

private:
    /** Sockets of this machine that wait in SYN_SENT for the port. */
    size_t hanging() const
    {
        char wanted[32];
        std::snprintf(wanted, sizeof wanted, "0100007F:%04X 02 ", static_cast<unsigned>(m_port));
        std::ifstream table("/proc/net/tcp");
        size_t count = 0;
        for (std::string line; std::getline(table, line);) {
            count += line.find(wanted) != std::string::npos ? 1 : 0;
        }
        return count;
    }

    int m_listener;
    int m_port;
    int m_fillers[4];
    std::thread m_refuser;
};

class ModuleLink : public FrontEndBench {
protected:
    ModuleLink()
    {
        logs.clear();
        m_open_before = open_descriptors();
    }
    ~ModuleLink() override { EXPECT_EQ(open_descriptors(), m_open_before); }

    std::string ask_module(const std::string& request, int port)
    {
        return orvanx->SendSCPIOrvanX(request.data(), static_cast<int>(request.size()), "127.0.0.1", port);
    }
    std::string ask_module(const std::string& request) { return ask_module(request, module.port()); }

    /** A module's end of a connection may still be open in this process when the reply has arrived. */
    void module_done(size_t conversations) { ASSERT_TRUE(module.wait_finished(conversations)); }

    std::vector<LogLine> info(std::initializer_list<const char*> texts)
    {
        std::vector<LogLine> lines;
        for (const char* text : texts) {
            lines.push_back({LOG_INFO, text});
        }
        return lines;
    }

private:
    size_t m_open_before = 0;
};

TEST_F(ModuleLink, ReplyIsReturnedWhole)
{
    module.always(ModuleAnswer::reply("abc;+OK\r\n"));
    EXPECT_EQ(ask_module(":X?\r\n"), "abc;+OK\r\n");
    EXPECT_EQ(module.requests(), std::vector<std::string>{":X?\r\n"});
    EXPECT_TRUE(logs.lines().empty());
    module_done(1);
}

TEST_F(ModuleLink, EveryRequestUsesItsOwnConnection)
{
    for (int i = 0; i < 3; ++i) {
        ask_module("*OPC?\r\n");
    }
    module_done(3);
    EXPECT_EQ(module.connections(), 3u);
}

TEST_F(ModuleLink, RequestIsSentUnchangedIncludingItsZeros)
{
    const std::string request("a\0b\r\n", 5);
    ask_module(request);
    module_done(1);
    EXPECT_EQ(module.requests(), std::vector<std::string>{request});
}

TEST_F(ModuleLink, RequestOfManyMegabytesIsSentWhole)
{
    const std::string request(20'000'000, 'x');
    module.always(ModuleAnswer::reply_to_block(request.size(), "+OK\r\n"));
    EXPECT_EQ(ask_module(request), "+OK\r\n");
    module_done(1);
    EXPECT_TRUE(module.requests()[0] == request);
}

TEST_F(ModuleLink, EmptyRequestStillConnectsAndWaitsForAReply)
{
    module.always(ModuleAnswer::greet("hello\r\n"));
    EXPECT_EQ(ask_module(""), "hello\r\n");
    module_done(1);
    EXPECT_EQ(module.connections(), 1u);
}

TEST_F(ModuleLink, ReplyIsCutAtAZeroByte)
{
    module.always(ModuleAnswer::reply(std::string("ab\0cd\r\n", 7)));
    EXPECT_EQ(ask_module("x\r\n"), "ab");
    module_done(1);
}

TEST_F(ModuleLink, ReplyInTwoSegmentsIsCutAtTheFirst)
{
    module.always(ModuleAnswer::two_segments("first;", "second;+OK\r\n"));
    EXPECT_EQ(ask_module("x\r\n"), "first;");
    module_done(1);
}

TEST_F(ModuleLink, ReplyOf4096BytesIsWholeAndOneMoreIsLost)
{
    const std::string full(4096, 'r');
    module.then(ModuleAnswer::reply(full));
    EXPECT_EQ(ask_module("x\r\n"), full);
    module.then(ModuleAnswer::reply(full + "s"));
    EXPECT_EQ(ask_module("x\r\n"), full);
    module_done(2);
}

TEST_F(ModuleLink, ModuleThatClosesWithoutReplyingYieldsAnEmptyTextAsSuccess)
{
    module.always(ModuleAnswer::close_mute());
    EXPECT_EQ(ask_module("x\r\n"), "");
    EXPECT_TRUE(orvanx->checkOrvanReply(""));
    module.always(ModuleAnswer::close_at_once());
    EXPECT_EQ(ask_module("x\r\n"), "");
    EXPECT_TRUE(logs.lines().empty());
    module_done(2);
}

TEST_F(ModuleLink, OnlyTheLow16BitsOfThePortCount)
{
    EXPECT_EQ(ask_module("x\r\n", module.port() + 0x30000), "+OK\r\n");
    module_done(1);
}

// ---- failures

TEST_F(ModuleLink, ClosedPortIsUnableToConnectAtOnce)
{
    const int listener = listen_on_loopback();
    const int port = local_port(listener);
    ::close(listener);
    EXPECT_EQ(ask_module("x\r\n", port), "-ERR Unable to connect");
    // Kernels differ in whether a non-blocking connect reports the refusal at once or after the wait.
    EXPECT_THAT(logs.lines(), testing::AnyOf(info({"Unable to connect\n"}),
                                             info({"Unable to connect (timeout or error)\n"})));
}

TEST_F(ModuleLink, InvalidAddressIsUnableToConnect)
{
    // It converts to the broadcast address, which the kernel refuses for TCP without a packet.
    EXPECT_EQ(orvanx->SendSCPIOrvanX("x\r\n", 3, "no address", 6001), "-ERR Unable to connect");
    EXPECT_EQ(logs.lines(), info({"Unable to connect\n"}));
}

TEST_F(ModuleLink, ConnectionThatIsRefusedAfterTheWaitHasItsOwnLogLine)
{
    FullListener busy;
    busy.refuse_next();
    EXPECT_EQ(ask_module("x\r\n", busy.port()), "-ERR Unable to connect");
    EXPECT_EQ(logs.lines(), info({"Unable to connect (timeout or error)\n"}));
}

TEST_F(ModuleLink, AddressThatDropsPacketsIsAConnectionTimeoutAfterFiveSeconds)
{
    const FullListener busy;
    const auto start = steady_clock::now();
    EXPECT_EQ(ask_module("x\r\n", busy.port()), "-ERR Connection timeout");
    const auto taken = steady_clock::now() - start;
    EXPECT_GE(taken, milliseconds(4990));
    EXPECT_LT(taken, milliseconds(9000));
    EXPECT_EQ(logs.lines(), info({"Connection timeout\n"}));
}

TEST_F(ModuleLink, SilentModuleIsAReceiveTimeoutAfterTenSeconds)
{
    module.always(ModuleAnswer::silence());
    const auto start = steady_clock::now();
    EXPECT_EQ(ask_module("x\r\n"), "-ERR Receive timeout");
    const auto taken = steady_clock::now() - start;
    EXPECT_GE(taken, milliseconds(9990));
    EXPECT_LT(taken, milliseconds(19000));
    EXPECT_EQ(logs.lines(), info({"Receive timeout occurred\n"}));
    module_done(1);
}

TEST_F(ModuleLink, ModuleThatAbortsTheConnectionIsAReceiveError)
{
    module.always(ModuleAnswer::reset());
    EXPECT_EQ(ask_module("x\r\n"), "-ERR Error while receiving server's msg");
    EXPECT_EQ(logs.lines(), info({"Error while receiving server's msg\n"}));
    module_done(1);
}

TEST_F(ModuleLink, RequestThatCannotBeSentIsAnError)
{
    module.always(ModuleAnswer::close_at_once());
    EXPECT_EQ(orvanx->SendSCPIOrvanX(nullptr, 10, "127.0.0.1", module.port()), "-ERR Unable to send message");
    EXPECT_EQ(logs.lines(), info({"Unable to send message\n"}));
    module_done(1);
}

TEST_F(ModuleLink, ReceiveTimeoutThatCannotBeSetIsAWarning)
{
    SocketTap tap(SocketTap::kAnyDescriptor);
    tap.fail_option(SOL_SOCKET, SO_RCVTIMEO, EDOM);
    EXPECT_EQ(ask_module("x\r\n"), "+OK\r\n");
    EXPECT_EQ(logs.lines(), info({"Warning: Unable to set receive timeout\n"}));
    module_done(1);
}

TEST_F(ModuleLink, WithoutADescriptorThereIsNoSocketAndNoLogLine)
{
    Scpi_Orvanx* const service = orvanx; // the sanitizer's check of `this` needs a descriptor too
    rlimit before{};
    ::getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{0, before.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
    const std::string reply = service->SendSCPIOrvanX("x\r\n", 3, "127.0.0.1", 1);
    ::setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(reply, "-ERR Unable to create socket");
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(ModuleLink, SocketIsBlockingWhileItSendsAndReceives)
{
    // A reply that is late by more than an instant would be an error on a non-blocking socket.
    module.always(ModuleAnswer::slow("late;+OK\r\n", milliseconds(100)));
    EXPECT_EQ(ask_module("x\r\n"), "late;+OK\r\n");
    module_done(1);
}

// ---- descriptors past the end of an fd_set

class HighDescriptor : public ModuleLink {
protected:
    /** Lets the next socket have a number above 1023. */
    bool reach()
    {
        ::getrlimit(RLIMIT_NOFILE, &m_limit);
        if (m_limit.rlim_max < 4096) {
            return false;
        }
        const rlimit raised{4096, m_limit.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &raised);
        while (m_fillers.empty() || m_fillers.back() < 2047) {
            m_fillers.push_back(::dup(STDERR_FILENO));
        }
        return true;
    }
    ~HighDescriptor() override
    {
        for (int fd : m_fillers) {
            ::close(fd);
        }
        ::setrlimit(RLIMIT_NOFILE, &m_limit);
    }

private:
    rlimit m_limit{};
    std::vector<int> m_fillers;
};

TEST_F(HighDescriptor, IsWaitedForLikeAnyOther)
{
    if (!reach()) {
        GTEST_SKIP() << "this machine allows no descriptor above 1023";
    }
    FullListener busy;
    busy.refuse_next();
    EXPECT_EQ(ask_module("x\r\n", busy.port()), "-ERR Unable to connect");
    EXPECT_EQ(logs.lines(), info({"Unable to connect (timeout or error)\n"}));
    EXPECT_EQ(ask_module("x\r\n"), "+OK\r\n");
    module_done(1);
}

// ---- many at once

TEST_F(ModuleLink, ConversationsWithOneModuleRunConcurrently)
{
    Rendezvous all(8);
    module.always(ModuleAnswer::reply_after([&] { all.meet(); }, "+OK\r\n"));
    std::vector<std::thread> askers;
    std::atomic<int> good = 0;
    for (int i = 0; i < 8; ++i) {
        askers.emplace_back([&] { good += ask_module("x\r\n") == "+OK\r\n" ? 1 : 0; });
    }
    for (std::thread& asker : askers) {
        asker.join();
    }
    EXPECT_EQ(good, 8);
    EXPECT_TRUE(all.everybody_met());
    module_done(8);
}

// ---- the test of a reply

TEST_F(ModuleLink, AReplyWithTheErrorWordAnywhereIsRefused)
{
    EXPECT_TRUE(orvanx->checkOrvanReply("abc;+OK\r\n"));
    EXPECT_TRUE(orvanx->checkOrvanReply("ERR -113"));
    EXPECT_TRUE(logs.lines().empty());
    EXPECT_FALSE(orvanx->checkOrvanReply("-ERR 123"));
    EXPECT_FALSE(orvanx->checkOrvanReply("1.0;-ERR"));
    EXPECT_EQ(logs.lines(), info({"checkOrvanReply: -ERR 123", "checkOrvanReply: 1.0;-ERR"}));
}

// ---- the relays

TEST_F(ModuleLink, DirectRelayPassesTheReplyUnchanged)
{
    module.always(ModuleAnswer::reply("5.0;+OK\r\n"));
    orvanx->setSelectedChannel(2);
    char request[] = ":FREQ?\r\n";
    orvanx->sendSCPICommandtoOrvanX(request, 8, client.server());
    EXPECT_EQ(read_ready(client.client()), "5.0;+OK\r\n");
    EXPECT_EQ(module.requests(), std::vector<std::string>{":FREQ?\r\n"});
    EXPECT_EQ(logs.lines(), info({":FREQ?\r\n", "channel 2 printing", "[Orvan Service X]: sending command 2",
                                  ":FREQ?\r\n", "[Orvan Service X]: send Scpi end.\n"}));
    module_done(1);
}

TEST_F(ModuleLink, DirectRelayWithoutAChannelTakesTheFirstAndKeepsIt)
{
    orvanx->setSelectedChannel(0);
    char request[] = ":FREQ?\r\n";
    orvanx->sendSCPICommandtoOrvanX(request, 8, client.server());
    EXPECT_EQ(orvanx->getSelectedChannel(), 1);
    EXPECT_EQ(logs.count(LOG_INFO, "channel 0 printing"), 1u);
    EXPECT_EQ(logs.count(LOG_INFO, "[Orvan Service X]: sending command 1"), 1u);
    module_done(1);
}

TEST_F(ModuleLink, DirectRelayQueriesTheSelectedChannel)
{
    const ScriptedModule fourth("127.0.10.1");
    connect_module(4, fourth);
    orvanx->setSelectedChannel(4);
    char request[] = "*OPC?\r\n";
    orvanx->sendSCPICommandtoOrvanX(request, 7, client.server());
    EXPECT_EQ(fourth.requests(), std::vector<std::string>{"*OPC?\r\n"});
    EXPECT_EQ(module.connections(), 0u);
    ASSERT_TRUE(fourth.wait_finished(1));
}

TEST_F(ModuleLink, DirectRelayPassesAFailureWithoutALineEnd)
{
    module.always(ModuleAnswer::reset());
    char request[] = "*OPC?\r\n";
    orvanx->sendSCPICommandtoOrvanX(request, 7, client.server());
    EXPECT_EQ(read_ready(client.client()), "-ERR Error while receiving server's msg");
    module_done(1);
}

TEST_F(ModuleLink, DirectRelayToALostClientIsNoFailure)
{
    char request[] = "*OPC?\r\n";
    orvanx->sendSCPICommandtoOrvanX(request, 7, -1);
    EXPECT_EQ(logs.count(LOG_INFO, "[Orvan Service X]: send Scpi end.\n"), 1u);
    module_done(1);
}

TEST_F(ModuleLink, CallerSocketReachesTheUserRecord)
{
    EXPECT_EQ(orvanx->setCallerSocket(client.server(), 2), 1);
    EXPECT_EQ(user().socket, client.server());
    EXPECT_EQ(user().deviceType, 2);
}

TEST_F(ModuleLink, SettingTheCallerSocketReturnsOneWhateverTheParserReturns)
{
    void* const record = scpi_context.user_context;
    scpi_context.user_context = nullptr;
    EXPECT_EQ(orvanx->setCallerSocket(client.server(), 2), 1);
    scpi_context.user_context = record;
}

TEST_F(ModuleLink, RelayReturnsTheParsersResult)
{
    char good[] = "*IDN?\n";
    char bad[] = ":FOO\n";
    EXPECT_EQ(orvanx->sendScpiToNewParser(good, 6), 1);
    EXPECT_EQ(orvanx->sendScpiToNewParser(bad, 5), 0);
}

} // namespace
