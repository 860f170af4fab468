// HiSLIP at the whole instrument, and a session as another implementation understands it: tshark's dissector.
#include <set>

#include <gtest/gtest.h>

#include "hislip_dissection.h"
#include "instrument.h"
#include "support/hislip_client.h"
#include "support/tcp_capture.h"

using namespace orvan_test;
using namespace std::chrono_literals;

namespace {

enum Type {
    kFatalError = 2,
    kError = 3,
    kAsyncLock = 4,
    kData = 6,
    kDataEnd = 7,
    kAsyncRemoteLocalControl = 10,
    kTrigger = 12,
    kInterrupted = 13,
    kAsyncInterrupted = 14,
    kAsyncMaximumMessageSize = 15,
    kAsyncInitialize = 17,
    kAsyncServiceRequest = 20,
    kAsyncLockInfo = 24,
    kTypes = 26,
};

/** Records what has passed on channels, step by step. */
class Recording {
public:
    void add(HislipChannel& channel)
    {
        m_channels.push_back({&channel, m_capture.connect()});
        note();
    }
    /** What is new since the last call. */
    void note()
    {
        for (Recorded& recorded : m_channels) {
            m_capture.from_client(recorded.number, recorded.channel->sent().substr(recorded.sent));
            m_capture.from_server(recorded.number, recorded.channel->received().substr(recorded.received));
            recorded.sent = recorded.channel->sent().size();
            recorded.received = recorded.channel->received().size();
        }
    }
    HislipDissection dissect() const { return dissect_hislip(m_capture.bytes()); }

private:
    struct Recorded {
        HislipChannel* channel;
        size_t number;
        size_t sent = 0;
        size_t received = 0;
    };
    TcpCapture m_capture{kHislipPort};
    std::vector<Recorded> m_channels;
};

std::string eight_bytes(size_t number)
{
    std::string bytes(8, '\0');
    for (size_t at = 8; at-- > 0; number >>= 8) {
        bytes[at] = static_cast<char>(number);
    }
    return bytes;
}

} // namespace

TEST(HislipDissection, ListsTheMessagesOfACapture)
{
    TcpCapture capture(kHislipPort);
    const size_t sync = capture.connect();
    capture.from_client(sync, HislipFrame{0, 0, 0x0200'5858, "hislip0"}.bytes());
    capture.from_server(sync, HislipFrame{1, 0, 0x0200'0001}.bytes());
    const size_t async = capture.connect();
    capture.from_client(async, HislipFrame{kAsyncInitialize, 0, 1}.bytes());
    capture.from_server(async, HislipFrame{18, 0, 0x5858}.bytes());
    // Two in one segment, and one in many.
    capture.from_client(sync, HislipFrame{kDataEnd, 0, 0xFFFF'FF00, ":FREQ 1GHz\n"}.bytes() +
                                  HislipFrame{kDataEnd, 0, 0xFFFF'FF02, "*IDN?\n"}.bytes());
    capture.from_server(sync, HislipFrame{kData, 0, 0xFFFF'FF02, std::string(100'000, 'x')}.bytes());
    const HislipDissection dissection = dissect_hislip(capture.bytes());
    EXPECT_EQ(dissection.types, (std::vector<int>{0, 1, 17, 18, 7, 7, 6}));
    EXPECT_EQ(dissection.faults, std::vector<std::string>());
}

TEST(HislipDissection, ReportsEachFrameThatIsNotHislips)
{
    TcpCapture capture(kHislipPort);
    const size_t sync = capture.connect();
    capture.from_client(sync, HislipFrame{0, 0, 0x0200'5858, "hislip0"}.bytes());
    capture.from_server(sync, "SH" + HislipFrame{1, 0, 0x0200'0001}.bytes().substr(2));
    const size_t async = capture.connect();
    capture.from_client(async, HislipFrame{kAsyncInitialize, 0, 1}.bytes());
    capture.from_client(async, HislipFrame{kAsyncMaximumMessageSize, 0, 0, "short"}.bytes());
    const HislipDissection dissection = dissect_hislip(capture.bytes());
    ASSERT_EQ(dissection.faults.size(), 2U);
    EXPECT_EQ(dissection.faults[0], "5\tFrame hasn't 'HS' as Prologue");
    EXPECT_EQ(dissection.faults[1], "10\tMalformed Packet (Exception occurred)");
}

TEST(HislipDissection, FindsEveryKindOfMessageAndNoFaultInASession)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    HislipClient client(instrument.hislip_port());
    Recording recording;
    recording.add(client.sync());
    recording.add(client.async());
    const auto step = [&](auto&& action) {
        action();
        recording.note();
    };
    step([&] { client.ask_async({kAsyncMaximumMessageSize, 0, 0, eight_bytes(1 << 20)}); });
    step([&] { client.ask_async({kAsyncLock, 1, 1000}); });
    step([&] { client.ask_async({kAsyncLockInfo}); });
    step([&] { client.ask_async({kAsyncRemoteLocalControl, 1, client.last_id()}); });
    step([&] { EXPECT_EQ(client.ask("*IDN?\n"), "Halde Electronics Ltd.,OVX3654B,100001,1.19.145\n"); });
    step([&] { EXPECT_EQ(client.ask(":FREQ 2GHz;:FREQ?\n"), "2000000000\n"); });
    step([&] { client.ask_async({kAsyncLock, 0, client.last_id()}); });
    step([&] { EXPECT_EQ(client.ask(":NO:SUCH?;:SYST:ERR?\n"), "-113,\"Undefined header\"\n"); });
    step([&] { client.write("*SRE 16;*IDN?\n"); });
    step([&] { EXPECT_EQ(client.async().receive()->type, kAsyncServiceRequest); });
    step([&] { EXPECT_EQ(client.poll() & 0x50, 0x50); });
    step([&] { client.write("*SRE 0\n"); }); // before the response is read
    step([&] { EXPECT_EQ(client.async().receive()->type, kAsyncInterrupted); });
    step([&] { EXPECT_EQ(client.ask(":SYST:ERR?\n"), "-410,\"Query INTERRUPTED\"\n"); });
    step([&] { EXPECT_EQ(client.clear(), 0); });
    step([&] {
        client.sync().send({kTrigger, 0, HislipClient::kFirstId});
        client.sync().send({kData, 0, HislipClient::kFirstId + 2, "*O"});
        client.sync().send({kDataEnd, 0, HislipClient::kFirstId + 4, "PC?\n"});
        EXPECT_EQ(client.sync().receive(), (HislipFrame{kDataEnd, 0, HislipClient::kFirstId + 4, "1\n"}));
    });
    step([&] {
        client.sync().send({kTypes});
        EXPECT_EQ(client.sync().receive()->type, kError);
    });
    HislipChannel stray(instrument.hislip_port());
    stray.send({kAsyncInitialize, 0, 0x7777});
    EXPECT_EQ(stray.receive()->type, kFatalError);
    recording.add(stray);

    const HislipDissection dissection = recording.dissect();
    EXPECT_EQ(dissection.faults, std::vector<std::string>());
    const std::set<int> seen(dissection.types.begin(), dissection.types.end());
    for (int type = 0; type < kTypes; ++type) {
        EXPECT_EQ(seen.count(type), 1U) << type;
    }
}

TEST(HislipInTheLan, IsServedOnItsUsualPort)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    const Outcome outcome =
        instrument.exec("lan", {"bash", "-c",
                                "exec 3<>/dev/tcp/10.0.0.2/4880 && "
                                "printf 'HS\\0\\0\\2\\0XX\\0\\0\\0\\0\\0\\0\\0\\7hislip0' >&3 && "
                                "timeout 20 head -c 6 <&3 | od -A n -t x1"});
    // InitializeResponse, version 2.0.
    EXPECT_EQ(outcome.output, " 48 53 01 00 02 00\n");
}
