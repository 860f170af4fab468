// HiSLIP: initialisation, errors, and clients that do not keep to the protocol.
#include <random>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include "hislip_fixture.h"

using namespace orvan_test;
using namespace std::chrono_literals;

namespace {

class HislipProtocol : public HislipTest {
protected:
    /** The answer to one message on a new connection. */
    std::optional<HislipFrame> first_answer(const HislipFrame& frame)
    {
        HislipChannel channel(server.port());
        channel.send(frame);
        return channel.receive();
    }
    void expect_fatal(HislipChannel& channel, int code)
    {
        const auto frame = channel.receive();
        ASSERT_TRUE(frame);
        EXPECT_EQ(frame->type, 2);
        EXPECT_EQ(frame->control, code);
        EXPECT_FALSE(frame->payload.empty());
        EXPECT_TRUE(channel.sees_end());
    }
    void expect_error(HislipChannel& channel, int code)
    {
        const auto frame = channel.receive();
        ASSERT_TRUE(frame);
        EXPECT_EQ(frame->type, 3) << *frame;
        EXPECT_EQ(frame->control, code);
    }
};

} // namespace

TEST_F(HislipProtocol, TheOlderVersionOfBothIsUsed)
{
    EXPECT_EQ(first_answer({0, 0, 0x0100'5858, "hislip0"})->parameter >> 16, 0x0100u);
    EXPECT_EQ(first_answer({0, 0, 0x0200'5858, "hislip0"})->parameter >> 16, 0x0200u);
    EXPECT_EQ(first_answer({0, 0, 0x0300'5858, "hislip0"})->parameter >> 16, 0x0200u);
}

TEST_F(HislipProtocol, SynchronizedModeIsPreferredAndSecureConnectionsAreNotSupported)
{
    EXPECT_EQ(first_answer({0, 0, 0x0200'5858, "hislip0"})->control, 0);
    HislipChannel sync(server.port());
    sync.send({0, 0, 0x0200'5858, "hislip0"});
    const uint32_t session = sync.receive()->parameter & 0xFFFF;
    EXPECT_EQ(first_answer({17, 0, session}), (HislipFrame{18, 0, 'H' << 8 | 'E', {}}));
}

TEST_F(HislipProtocol, SubAddressesAreHislip0AndNone)
{
    EXPECT_EQ(first_answer({0, 0, 0x0100'5858, ""})->type, 1);
    EXPECT_EQ(first_answer({0, 0, 0x0100'5858, "HiSLIP0"})->type, 1);
    HislipChannel channel(server.port());
    channel.send({0, 0, 0x0100'5858, "hislip1"});
    expect_fatal(channel, 3);
}

TEST_F(HislipProtocol, AnythingElseIsNoBeginning)
{
    for (const HislipFrame& frame :
         {HislipFrame{7, 0, 0, "*IDN?\n"}, HislipFrame{19}, HislipFrame{17, 0, 12345}}) {
        HislipChannel channel(server.port());
        channel.send(frame);
        expect_fatal(channel, 3);
    }
    EXPECT_TRUE(instrument.messages().empty());
}

TEST_F(HislipProtocol, AHeaderWithoutItsPrologueIsFatal)
{
    HislipChannel channel(server.port());
    channel.send_bytes("*IDN?\n");
    expect_fatal(channel, 1);
    HislipClient client(server.port());
    client.sync().send_bytes("HX");
    expect_fatal(client.sync(), 1);
    HislipClient other(server.port());
    other.async().send_bytes("GET / HTTP/1.1\r\n");
    expect_fatal(other.async(), 1);
    EXPECT_TRUE(instrument.messages().empty());
}

TEST_F(HislipProtocol, DataBeforeTheSecondChannelIsFatal)
{
    HislipChannel channel(server.port());
    channel.send({0, 0, 0x0100'5858, "hislip0"});
    EXPECT_EQ(channel.receive()->type, 1);
    channel.send({7, 0, 0xFFFF'FF00, "*IDN?\n"});
    expect_fatal(channel, 2);
    EXPECT_TRUE(instrument.messages().empty());
}

TEST_F(HislipProtocol, ASessionEndsIfItsSecondChannelDoesNotComeWithinTenSeconds)
{
    const auto begin = std::chrono::steady_clock::now();
    HislipChannel silent(server.port());
    HislipChannel channel(server.port());
    channel.send({0, 0, 0x0200'5858, "hislip0"});
    const uint32_t id = channel.receive()->parameter & 0xFFFF;
    expect_fatal(channel, 2);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 10s);
    EXPECT_EQ(first_answer({17, 0, id})->type, 2);
    EXPECT_TRUE(silent.sees_end()); // it never said what it is
}

TEST_F(HislipProtocol, BothChannelsAreWatchedForADeadPeer)
{
    const HislipClient client(server.port());
    int found = 0;
    for (int fd = 3; fd < 200; ++fd) { // the server's ends are descriptors of this process
        sockaddr_in own{};
        socklen_t size = sizeof own;
        sockaddr_in peer{};
        socklen_t peer_size = sizeof peer;
        if (::getsockname(fd, reinterpret_cast<sockaddr*>(&own), &size) != 0 ||
            ntohs(own.sin_port) != server.port() ||
            ::getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &peer_size) != 0) {
            continue;
        }
        int on = 0;
        int idle = 0;
        socklen_t option_size = sizeof on;
        EXPECT_EQ(::getsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, &option_size), 0);
        EXPECT_EQ(::getsockopt(fd, IPPROTO_TCP, TCP_KEEPIDLE, &idle, &option_size), 0);
        EXPECT_EQ(on, 1);
        EXPECT_EQ(idle, 60);
        ++found;
    }
    EXPECT_EQ(found, 2);
}

TEST_F(HislipProtocol, ASecondInitialisationIsFatal)
{
    HislipClient client(server.port());
    client.sync().send({0, 0, 0x0100'5858, "hislip0"});
    expect_fatal(client.sync(), 3);
    HislipClient other(server.port());
    other.async().send({17, 0, other.session()});
    expect_fatal(other.async(), 3);
}

TEST_F(HislipProtocol, TheSecondChannelMustComeFromTheSameAddress)
{
    HislipChannel sync(server.port(), "127.0.0.3");
    sync.send({0, 0, 0x0100'5858, "hislip0"});
    const uint32_t session = sync.receive()->parameter & 0xFFFF;
    HislipChannel stranger(server.port(), "127.0.0.4");
    stranger.send({17, 0, session});
    expect_fatal(stranger, 3);
    HislipChannel async(server.port(), "127.0.0.3");
    async.send({17, 0, session});
    EXPECT_EQ(async.receive()->type, 18);
}

TEST_F(HislipProtocol, TheThirtyThirdSessionIsRefusedAndAPlaceFreedIsTaken)
{
    std::vector<std::unique_ptr<HislipClient>> clients;
    for (int i = 0; i < 32; ++i) {
        clients.push_back(std::make_unique<HislipClient>(server.port()));
    }
    HislipChannel channel(server.port());
    channel.send({0, 0, 0x0100'5858, "hislip0"});
    expect_fatal(channel, 4);
    clients.pop_back();
    EXPECT_TRUE(eventually([this] { return first_answer({0, 0, 0x0100'5858, "hislip0"})->type == 1; }));
    EXPECT_EQ(clients.front()->ask("*IDN?\n"), "*IDN?\n");
}

TEST_F(HislipProtocol, UnknownTypesAreErrorsOnBothChannelsAndTheSessionGoesOn)
{
    HislipClient client(server.port());
    for (int type = 26; type <= 38; ++type) {
        client.sync().send({type, 0, 0, "payload"});
        expect_error(client.sync(), 1);
        client.async().send({type, 0, 0, "payload"});
        expect_error(client.async(), 1);
    }
    client.sync().send({200});
    expect_error(client.sync(), 3);
    client.async().send({200});
    expect_error(client.async(), 3);
    client.sync().send({21}); // on the wrong channel
    expect_error(client.sync(), 1);
    EXPECT_EQ(client.ask("*IDN?\n"), "*IDN?\n");
}

TEST_F(HislipProtocol, UnknownControlCodesAreErrors)
{
    HislipClient client(server.port());
    client.sync().send({7, 2, 0xFFFF'FF00, "*IDN?\n"});
    expect_error(client.sync(), 2);
    client.async().send({4, 2});
    expect_error(client.async(), 2);
    client.async().send({10, 7});
    expect_error(client.async(), 2);
    EXPECT_TRUE(instrument.messages().empty());
}

TEST_F(HislipProtocol, RemoteAndLocalAreAcknowledged)
{
    HislipClient client(server.port());
    for (int request = 0; request <= 6; ++request) {
        EXPECT_EQ(client.ask_async({10, request, client.last_id()}), (HislipFrame{11, 0, 0, {}}));
    }
}

TEST_F(HislipProtocol, AFrameAboveTheAnnouncedSizeIsAnErrorAndDropped)
{
    HislipClient client(server.port());
    client.write(std::string(0x300000 + 1, ' '));
    expect_error(client.sync(), 4);
    EXPECT_EQ(client.ask("*IDN?\n"), "*IDN?\n");
    client.async().send({4, 1, 0, std::string(257, 'x')});
    expect_error(client.async(), 4);
}

TEST_F(HislipProtocol, TheMessageThatARefusedFrameIsPartOfIsDropped)
{
    HislipClient client(server.port());
    for (const HislipFrame& refused : {HislipFrame{6, 2, 0xFFFF'FF02, ":B 1;"},
                                       HislipFrame{6, 0, 0xFFFF'FF02, std::string(0x300001, 'B')}}) {
        client.sync().send({6, 0, 0xFFFF'FF00, ":A 1;"});
        client.sync().send(refused);
        client.sync().send({6, 0, 0xFFFF'FF04, ":C 1;"});
        client.sync().send({7, 0, 0xFFFF'FF06, ":D?"});
        EXPECT_EQ(client.sync().receive()->type, 3);
        client.sync().send({7, 0, 0xFFFF'FF08, ":E?"});
        EXPECT_EQ(client.sync().receive(), (HislipFrame{7, 0, 0xFFFF'FF08, ":E?\n"}));
        client.sync().send({7, 1, 0xFFFF'FF0A, ":F 1"});
    }
    EXPECT_TRUE(eventually([this] { return instrument.messages().size() == 4; }));
    EXPECT_EQ(instrument.texts(), (std::vector<std::string>{":E?", ":F 1", ":E?", ":F 1"}));
}

TEST_F(HislipProtocol, ARefusedTriggerIsNotExecuted)
{
    HislipClient client(server.port());
    client.sync().send({12, 2, 0xFFFF'FF00});
    EXPECT_EQ(client.sync().receive()->type, 3);
    EXPECT_EQ(client.ask(":A?"), ":A?\n");
    EXPECT_EQ(instrument.texts(), std::vector<std::string>{":A?"});
}

TEST_F(HislipProtocol, AClientThatDoesNotReadItsResponsesDelaysNobodyAndIsClosed)
{
    HislipClient client(server.port());
    HislipClient other(server.port());
    EXPECT_EQ(client.clear(1), 1);
    const std::string query = ":A '" + std::string(1'000'000, 'x') + "'?";
    for (int i = 0; i < 8; ++i) {
        client.sync().send({7, 0, 0, query});
        EXPECT_EQ(other.ask("*IDN?\n"), "*IDN?\n");
    }
    EXPECT_TRUE(eventually(
        [this] { return log.count(LOG_NOTICE, "hislip 1: closed, it does not read its responses") == 1; }));
    EXPECT_EQ(other.ask("*IDN?\n"), "*IDN?\n");
}

TEST_F(HislipProtocol, WithoutDescriptorsOthersAreServedAndTheNextWaits)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP()
        << "UndefinedBehaviorSanitizer takes objects for invalid when it has no descriptors to examine them";
#endif
    HislipClient client(server.port());
    const orvan_common::UniqueFd waiting(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    rlimit before{};
    ::getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{static_cast<rlim_t>(waiting.get() + 1), before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    name.sin_port = htons(static_cast<uint16_t>(server.port()));
    EXPECT_EQ(::connect(waiting.get(), reinterpret_cast<sockaddr*>(&name), sizeof name), 0);
    EXPECT_TRUE(log.wait_for(LOG_ERR, "hislip: accept: Too many open files"));
    EXPECT_EQ(client.ask("*IDN?\n"), "*IDN?\n");
    EXPECT_LE(log.count(LOG_ERR, "hislip: accept: Too many open files"), 100u); // no busy loop
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    const std::string initialize = HislipFrame{0, 0, 0x02000000, "hislip0"}.bytes();
    ASSERT_EQ(::send(waiting.get(), initialize.data(), initialize.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(initialize.size()));
    char type[3] = {};
    EXPECT_EQ(::recv(waiting.get(), type, sizeof type, MSG_WAITALL), 3);
    EXPECT_EQ(type[2], 1);
}

TEST_F(HislipProtocol, GarbageNeverReachesTheParserAndDisturbsNobody)
{
    HislipClient client(server.port());
    std::minstd_rand random(16);
    std::string garbage(64 * 1024, '\0');
    for (int round = 0; round < 160; ++round) { // ten million bytes
        for (char& byte : garbage) {
            byte = static_cast<char>(random());
        }
        HislipChannel(server.port()).send_bytes(garbage);
        ASSERT_EQ(client.ask("*IDN?\n"), "*IDN?\n");
    }
    EXPECT_EQ(instrument.messages().size(), 160u);
}
