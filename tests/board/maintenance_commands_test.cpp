// The maintenance commands that change nothing, byte for byte, and the protocol's helpers.

#include <string>
#include <vector>

#include <syslog.h>

#include "maintenance_commands_bench.h"

using namespace board_test;
using namespace HaldeElec::Orvan;

namespace {

// ---- HEID

TEST_F(MaintenanceCommands, IdentifySendsTheRowsWithItsOwnAddress)
{
    const FrameHeader asked{"HEID", 0x1234, 0x5678, kBroadcast, 0xABCD, 0x89ABCDEF, "\x12\x34"};
    FrameHeader header = asked;
    header.size = 512;
    header.mac = kOwnMac;
    EXPECT_EQ(reply_to(asked.bytes()), header.bytes() + identification());
    EXPECT_EQ(client.ready(), "") << "one reply";
}

TEST_F(MaintenanceCommands, IdentifyLogsEachRow)
{
    reply_to(FrameHeader{"HEID"}.bytes());
    EXPECT_EQ(take_logs(), (std::vector<std::string>{
                               kAccepted,
                               "[A] - [10.0.0.7]\n",
                               "[N] - [255.255.0.0]\n",
                               "[E] - [b8:27:eb:01:02:03]\n",
                               "[G] - [10.0.0.1]\n",
                               "[B] - [ON]\n",
                               "[H] - [OVX3651P-230000]\n",
                               "[D] - [Halde Electronics Ltd.]\n",
                               "[I] - [OVX3651P]\n",
                               "[S] - [230000]\n",
                               "[F] - [01.0.001]\n",
                               "[O] - [8G,MOD,BAT]\n",
                               "[C] - [271020]\n",
                               "[W] - [5025]\n",
                               "[Y] - [D]\n",
                               "[V] - []\n",
                               "[P] - [A-1]\n",
                           }));
    EXPECT_EQ(printed(), "");
}

TEST_F(MaintenanceCommands, IdentifyReplyHoldsNoRequestData)
{
    reply_to(FrameHeader{"HEID"}.bytes() + std::string(FRMDATALEN, 'x'));
    EXPECT_EQ(peer.buffer().substr(FRMHEADERLEN), identification() + std::string(512, '\0'));
}

TEST_F(MaintenanceCommands, RowsAreReadAtStartUp)
{
    const std::string before = reply_to(FrameHeader{"HEID"}.bytes());
    reply_to(request({"HEOT"}, {request_row('S', "230042")}));
    EXPECT_STREQ(settings().serialNum, "230042");
    EXPECT_EQ(reply_to(FrameHeader{"HEID"}.bytes()), before);
    CPersistentData::GetInstance()->setFlashParams(optPortable_Tbl, kOptionRows); // the next start
    EXPECT_NE(reply_to(FrameHeader{"HEID"}.bytes()).find("S230042"), std::string::npos);
}

// ---- HECT

TEST_F(MaintenanceCommands, OptionTableIsSentAsStoredInMemory)
{
    device.option_table = std::string(reinterpret_cast<const char*>(optPortable_Tbl), sizeof optPortable_Tbl);
    const FrameHeader asked{"HECT", 5, 77, kForeignMac, 6, 7};
    FrameHeader header = asked;
    header.size = 128;
    const std::string reply = reply_to(asked.bytes());
    EXPECT_EQ(reply, header.bytes() + device.option_table);
    EXPECT_EQ(device.take_calls(), (std::vector<std::string>{"GetOptionsTable"})) << "with a null table";
    EXPECT_EQ(reply.substr(22, 24), "\0\4\1\x08\0\0\0\0"
                                    "\4\1\1\1MOD\0"
                                    "\5\1\1\0PLS\0"s);
    EXPECT_EQ(take_logs(), (std::vector<std::string>{kAccepted}));
}

TEST_F(MaintenanceCommands, OptionTableNeedsADevice)
{
    peer.set_device(nullptr);
    EXPECT_EQ(serve(FrameHeader{"HECT"}.bytes()), IF_FAILED);
    EXPECT_EQ(client.ready(), "");
    EXPECT_EQ(logs.lines(),
              (std::vector<LogLine>{{LOG_INFO, kAccepted},
                                    {LOG_ERR, "UdpServer: HETO - failed to get device object"}}));
}

TEST_F(MaintenanceCommands, OptionTableOfADeviceThatRefusesIsStillSent)
{
    device.refused.insert("GetOptionsTable");
    device.option_table = "12345678";
    EXPECT_EQ(reply_to(FrameHeader{"HECT"}.bytes()), FrameHeader({"HECT", 0, 8}).bytes() + "12345678");
    device.option_table = std::string(2000, 'o');
    EXPECT_EQ(reply_to(FrameHeader{"HECT"}.bytes()),
              FrameHeader({"HECT", 0, 1024}).bytes() + std::string(1024, 'o'))
        << "no more than a frame holds";
}

// ---- without a device or settings

TEST_F(MaintenanceCommands, SettingsAreKeptWithoutADevice)
{
    peer.set_device(nullptr);
    EXPECT_EQ(reply_to(request({"HEIP"}, {request_row('A', "10.1.1.1"), request_row('B', "Y")})).size(),
              588u);
    EXPECT_STREQ(settings().fixIp, "10.1.1.1");
}

TEST_F(MaintenanceCommands, WithoutSettingsRequestsAreAnsweredAndKeepNothing)
{
    PersistentDataTestPeer::forget_instance();
    EXPECT_EQ(reply_to(FrameHeader{"HEID"}.bytes()),
              FrameHeader({"HEID", 0, 512, kOwnMac}).bytes() + std::string(512, '\0'));
    EXPECT_EQ(reply_to(request({"HEIP"}, {request_row('A', "10.1.1.1"), request_row('B', "Y")})).size(),
              588u);
    EXPECT_EQ(reply_to(request({"HEOT"}, {request_row('S', "7"), request_row('O', "\x80")})).size(), 534u);
    EXPECT_TRUE(device.calls.empty());
}

// ---- helpers of the protocol

TEST(MaintenanceBits, AreReversed)
{
    for (unsigned bit = 0; bit < 16; ++bit) {
        EXPECT_EQ(reverse_16_bits(static_cast<uint16_t>(1U << bit)), 1U << (15 - bit));
    }
    for (unsigned value = 0; value < 0x10000; ++value) {
        const auto bits = static_cast<uint16_t>(value);
        ASSERT_EQ(reverse_16_bits(reverse_16_bits(bits)), bits);
    }
    EXPECT_EQ(reverse_16_bits(0x1234), 0x2C48);
}

TEST(MaintenanceRows, AreLoggedOnlyIfComplete)
{
    orvan_test::LogCapture logs;
    const std::string rows =
        request_row('A', "one") + request_row('B', std::string(31, 'b')) + std::string(31, 'c');
    print_options(rows.data(), rows.size());
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_INFO, "[A] - [one]\n"},
                                                  {LOG_INFO, "[B] - [" + std::string(31, 'b') + "]\n"}}));
    logs.clear();
    print_options(rows.data(), 31);
    print_options(rows.data(), 0);
    EXPECT_TRUE(logs.lines().empty());
}

} // namespace
