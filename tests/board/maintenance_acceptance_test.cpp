// Which frames the maintenance server accepts.

#include "maintenance_bench.h"

using namespace board_test;
using namespace HaldeElec::Orvan;

namespace {

using MaintenanceAcceptance = MaintenanceTest;

TEST_F(MaintenanceAcceptance, ChecksTheMacUnlessTheFrameIsFromTheInstrumentItself)
{
    const MaintenanceClient elsewhere("127.0.0.2");
    const struct {
        const MaintenanceClient& from;
        std::string mac;
        bool accepted;
    } cases[] = {
        {client, kOwnMac, true},
        {client, kBroadcast, true},
        {client, kForeignMac, true},
        {client, std::string(6, '\0'), true},
        {elsewhere, kOwnMac, true},
        {elsewhere, kBroadcast, true},
        {elsewhere, kForeignMac, false},
        {elsewhere, std::string(6, '\0'), false},
        {elsewhere, "\x03\x11\x22\x33\x44\x55"s, false},
        {elsewhere, "\xff\xff\xff\xff\xff\xfe"s, false},
        {elsewhere, "\x7f\xff\xff\xff\xff\xff"s, false},
    };
    for (const auto& [from, mac, accepted] : cases) {
        logs.clear();
        EXPECT_EQ(peer.serve(FrameHeader{"HEID", 0, 0, mac}.bytes(), from.address()), IF_SUCCESS);
        EXPECT_EQ(from.ready().size(), accepted ? 534u : 0u) << testing::PrintToString(mac);
        EXPECT_EQ(logs.count(LOG_INFO, kAccepted), accepted ? 1u : 0u);
        EXPECT_TRUE(accepted || logs.lines().empty());
    }
}

TEST_F(MaintenanceAcceptance, TheWholeLoopbackButItsFirstAddressIsForeign)
{
    for (const char* address : {"127.0.0.2", "127.0.1.1", "127.1.0.1", "127.255.255.254"}) {
        const MaintenanceClient other(address);
        peer.serve(FrameHeader{"HEID"}.bytes(), other.address());
        EXPECT_EQ(other.ready(), "") << address;
    }
}

TEST_F(MaintenanceAcceptance, EveryOpcodeIsLoggedAndOnlyKnownOnesAreAnswered)
{
    for (const char* opcode : {"HEIX", "heid", "HEIF", "NONE", "EHID", "HE\0\0", "\0\0\0\0"}) {
        logs.clear();
        EXPECT_EQ(reply_to(FrameHeader{std::string(opcode, 4)}.bytes()), "");
        EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_INFO, kAccepted}}));
    }
    EXPECT_EQ(printed(), "");
    for (const char* opcode : {"HEID", "HEIP", "HEOT", "HECT", "HEID"}) {
        logs.clear();
        reply_to(FrameHeader{opcode}.bytes());
        EXPECT_EQ(logs.count(LOG_INFO, kAccepted), 1u) << opcode;
        EXPECT_EQ(logs.lines().front(), (LogLine{LOG_INFO, kAccepted})) << opcode;
    }
}

TEST_F(MaintenanceAcceptance, ForeignFrameChangesNothing)
{
    const MaintenanceClient elsewhere("127.0.0.2");
    const Settings before = settings();
    const size_t writes_before = writes();
    for (const char* opcode : {"HEIP", "HEOT"}) {
        peer.serve(
            request({opcode, 0, 0, kForeignMac}, {request_row('A', "10.1.1.1"), request_row('S', "1")}),
            elsewhere.address());
    }
    EXPECT_EQ(std::memcmp(&settings(), &before, sizeof before), 0);
    EXPECT_EQ(writes(), writes_before);
    EXPECT_TRUE(device.calls.empty());
    EXPECT_EQ(printed(), "");
}

TEST_F(MaintenanceAcceptance, FrameWithoutAMacKeepsTheMacOfThePreviousFrame)
{
    const MaintenanceClient elsewhere("127.0.0.2");
    peer.serve("HEID"s, elsewhere.address());
    EXPECT_EQ(elsewhere.ready(), "") << "no earlier frame: the address is zero";

    peer.serve(FrameHeader{"NONE", 0, 0, kBroadcast}.bytes(), elsewhere.address());
    peer.serve("HEID\0\0\0\0"s, elsewhere.address());
    EXPECT_EQ(elsewhere.ready().size(), 534u);

    peer.serve(FrameHeader{"NONE", 0, 0, kForeignMac}.bytes(), elsewhere.address());
    peer.serve("HEID\0\0\0\0"s, elsewhere.address());
    EXPECT_EQ(elsewhere.ready(), "");

    // Five bytes of its own address are already in the buffer.
    peer.serve(FrameHeader{"NONE", 0, 0, kOwnMac.substr(0, 5) + "\x77"s}.bytes(), elsewhere.address());
    peer.serve("HEID\0\0\0\0"s + kOwnMac.substr(0, 5), elsewhere.address());
    EXPECT_EQ(elsewhere.ready(), "") << "13 bytes";
    peer.serve("HEID\0\0\0\0"s + kOwnMac, elsewhere.address());
    EXPECT_EQ(elsewhere.ready().size(), 534u) << "14 bytes";
}

TEST_F(MaintenanceAcceptance, TruncatedOpcodeIsCompletedFromThePreviousFrame)
{
    reply_to(FrameHeader{"NONE"}.bytes());
    EXPECT_EQ(reply_to("HEI"), "") << "HEIE";
    reply_to(FrameHeader{"XXXD"}.bytes());
    EXPECT_EQ(reply_to("HEI").size(), 534u);
}

TEST_F(MaintenanceAcceptance, EmptyDatagramRepeatsThePreviousFrame)
{
    EXPECT_EQ(reply_to(""), "") << "no earlier frame";
    reply_to(FrameHeader{"HEID", 7}.bytes());
    const std::string again = reply_to("");
    EXPECT_EQ(again.size(), 534u);
    EXPECT_EQ(again.substr(0, 6), "HEID\0\7"s);
}

TEST_F(MaintenanceAcceptance, ForeignDownloadDoesNotStart)
{
    const MaintenanceClient elsewhere("127.0.0.2");
    device.device_type_product = InvalidDevice; // a transfer that begins fails at once
    for (const char* opcode : {"HESU", "HEPD"}) {
        logs.clear();
        EXPECT_EQ(peer.serve(FrameHeader{opcode, 1, 0xFFFF, kForeignMac}.bytes(), elsewhere.address()),
                  IF_SUCCESS)
            << opcode;
        EXPECT_EQ(elsewhere.ready(), "") << opcode;
        EXPECT_TRUE(logs.lines().empty()) << opcode;
    }
}

} // namespace
