// The network command of the maintenance protocol, HEIP, byte for byte.

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <syslog.h>

#include "maintenance_commands_bench.h"

using namespace board_test;
using namespace HaldeElec::Orvan;

namespace {

TEST_F(MaintenanceCommands, NetworkWithoutRowsIsNotAnsweredAndChangesNothing)
{
    const Settings before = settings();
    FrameHeader asked{"HEIP", 1, 0, kBroadcast};
    EXPECT_EQ(reply_to(asked.bytes() + request_row('A', "10.1.1.1")), "");
    EXPECT_EQ(std::memcmp(&settings(), &before, sizeof before), 0);
    asked.mac = kOwnMac;
    EXPECT_EQ(header_of(peer.buffer()), asked.bytes());
    EXPECT_EQ(take_logs(),
              (std::vector<std::string>{kAccepted, "[CUdpServer] HEIP change network parameters"}));
    EXPECT_EQ(printed(), "");
    EXPECT_TRUE(device.calls.empty());
    EXPECT_TRUE(board->trace().lines_with({"delay 500000"}).empty());
}

TEST_F(MaintenanceCommands, NetworkTextsAreStoredInTheirFields)
{
    const TextRow rows[] = {
        {'A', &EEPROM_DEVICE_SETTINGS::fixIp},   {'E', &EEPROM_DEVICE_SETTINGS::mac},
        {'G', &EEPROM_DEVICE_SETTINGS::fixGw},   {'H', &EEPROM_DEVICE_SETTINGS::hostName},
        {'N', &EEPROM_DEVICE_SETTINGS::fixMask}, {'W', &EEPROM_DEVICE_SETTINGS::scpiPort, "", {}, false},
    };
    // The longest leaves no room for a terminator.
    for (const std::string value : {"172.16.0.9", "", "0123456789012345678901234567890"}) {
        for (const TextRow& row : rows) {
            const Settings before = settings();
            const size_t writes_before = writes();
            const std::string asked = request({"HEIP", 3, 0, kBroadcast}, {request_row(row.letter, value)});
            const std::string reply = reply_to(asked);
            EXPECT_EQ(text_in(settings(), row), in_field(value)) << row.letter;
            EXPECT_TRUE(rest_is_equal(settings(), before, row)) << row.letter;
            EXPECT_EQ(writes(), writes_before + 1) << row.letter;
            const Settings in_eeprom = stored();
            EXPECT_EQ(std::memcmp(&in_eeprom, &settings(), sizeof in_eeprom), 0) << row.letter;
            if (row.at_once) {
                // The request and the 22 bytes after it in the buffer.
                EXPECT_EQ(reply, FrameHeader({"HEIP", 3, 32, kOwnMac}).bytes() + asked.substr(22) +
                                     std::string(22, '\0'));
            } else {
                EXPECT_EQ(reply, FrameHeader({"HEIP", 3, 512, kOwnMac}).bytes() + identification());
            }
            EXPECT_EQ(device.take_calls(),
                      row.at_once ? std::vector<std::string>{"SetDHCP 1"} : std::vector<std::string>{})
                << row.letter;
            char letter[4];
            std::snprintf(letter, sizeof letter, "%X", static_cast<unsigned>(row.letter));
            EXPECT_EQ(printed(), printed_rows({letter}));
            EXPECT_EQ(take_logs(),
                      (std::vector<std::string>{kAccepted, "[CUdpServer] HEIP change network parameters"}));
        }
    }
}

TEST_F(MaintenanceCommands, NetworkRequestOf54BytesIsAnsweredWith76)
{
    const std::string asked = FrameHeader({"HEIP", 0, 32}).bytes() + request_row('A', "192.168.1.77");
    ASSERT_EQ(asked.size(), 54u);
    const std::string reply = reply_to(asked);
    EXPECT_EQ(reply, FrameHeader({"HEIP", 0, 32, kOwnMac}).bytes() + request_row('A', "192.168.1.77") +
                         std::string(22, '\0'));
    EXPECT_EQ(reply.size(), 76u);
    EXPECT_EQ(device.take_calls(), (std::vector<std::string>{"SetDHCP 1"}));
    EXPECT_STREQ(settings().fixIp, "192.168.1.77");
}

TEST_F(MaintenanceCommands, NetworkReplyIsAsLongAsTheDatagramRegardlessOfItsSizeField)
{
    for (const uint16_t size : {uint16_t{1}, uint16_t{32}, uint16_t{1024}, EOD}) {
        clear_buffer();
        for (const size_t length : {size_t{22}, size_t{23}, size_t{54}, size_t{566}, size_t{1024}}) {
            const std::string asked = FrameHeader({"HEIP", 0, size}).bytes() + std::string(length - 22, '\0');
            const std::string reply = reply_to(asked);
            EXPECT_EQ(reply.size(), length + 22);
            EXPECT_EQ(reply.substr(22), std::string(length, '\0'));
            EXPECT_EQ(reply.substr(0, 22), FrameHeader({"HEIP", 0, size, kOwnMac}).bytes());
        }
    }
    EXPECT_TRUE(device.take_calls().empty());
}

TEST_F(MaintenanceCommands, NetworkReplyToALongRequestEndsInZeros)
{
    for (const size_t length : {size_t{1025}, size_t{1046}}) {
        const std::string data = std::string(544, '\0') + std::string(length - 22 - 544, 'x');
        const std::string reply = reply_to(FrameHeader({"HEIP", 0, 1024}).bytes() + data);
        const size_t in_buffer = std::min<size_t>(length + 22, 1046);
        ASSERT_EQ(reply.size(), length + 22);
        EXPECT_EQ(reply.substr(22, data.size()), data);
        EXPECT_EQ(reply.substr(in_buffer), std::string(reply.size() - in_buffer, '\0'));
        clear_buffer();
    }
}

TEST_F(MaintenanceCommands, NetworkDhcpIsOnOnlyForTheLetterY)
{
    const struct {
        std::string value;
        int now; // as the device reports
        uint8_t stored;
        bool applied;
    } cases[] = {
        {"Y", 1, 1, false}, {"Y", 0, 1, true},   {"YES", 0, 1, true}, {"N", 1, 0, true}, {"N", 0, 0, false},
        {"y", 1, 0, true},  {"ON", 0, 0, false}, {"", 1, 0, true},    {"1", 1, 0, true},
    };
    for (const auto& [value, now, in_record, applied] : cases) {
        device.numbers["GetDHCP"] = now;
        const size_t writes_before = writes();
        const bool changes = settings().dhcpEnabled != in_record;
        const std::string reply = reply_to(request({"HEIP"}, {request_row('B', value)}));
        EXPECT_EQ(reply.size(), 22u + 566) << "the request and 22 bytes";
        EXPECT_EQ(settings().dhcpEnabled, in_record) << value;
        EXPECT_EQ(stored().dhcpEnabled, in_record) << value;
        EXPECT_EQ(writes(), writes_before + (changes ? 1 : 0)) << value;
        EXPECT_EQ(logs.count(LOG_INFO, kNothingChanged), changes ? 0u : 1u) << value;
        std::vector<std::string> calls = {"GetDHCP"};
        if (applied) {
            calls.emplace_back(in_record != 0 ? "SetDHCP 1" : "SetDHCP 0");
        }
        EXPECT_EQ(device.take_calls(), calls) << value << " " << now;
        logs.clear();
    }
}

TEST_F(MaintenanceCommands, NetworkAppliesTheModeInTheSettings)
{
    settings().dhcpEnabled = 0;
    reply_to(request({"HEIP"}, {request_row('A', "10.1.1.1")}));
    EXPECT_EQ(device.take_calls(), (std::vector<std::string>{"SetDHCP 0"}));
    settings().dhcpEnabled = 7;
    reply_to(request({"HEIP"}, {request_row('G', "10.1.1.2")}));
    EXPECT_EQ(device.take_calls(), (std::vector<std::string>{"SetDHCP 1"}));
}

TEST_F(MaintenanceCommands, NetworkSkipsForeignLetters)
{
    const Settings before = settings();
    for (int letter = 0; letter < 256; ++letter) {
        if (std::strchr("ABEGHNW", letter) != nullptr && letter != 0) {
            continue;
        }
        const std::string asked =
            request({"HEIP", 0, 0, kOwnMac}, {request_row(static_cast<char>(letter), "7")});
        EXPECT_EQ(reply_to(asked), asked + std::string(22, '\0')) << letter;
        char text[4];
        std::snprintf(text, sizeof text, "%X", static_cast<unsigned>(letter));
        EXPECT_EQ(printed(), printed_rows({text}));
    }
    EXPECT_EQ(std::memcmp(&settings(), &before, sizeof before), 0);
    EXPECT_TRUE(device.calls.empty());
    EXPECT_EQ(logs.count(LOG_INFO, kNothingChanged), 0u);
}

TEST_F(MaintenanceCommands, NetworkTakesAll17RowsInOrder)
{
    std::vector<std::string> rows(17, request_row('Z', "")); // a letter that no row has
    rows[0] = request_row('A', "10.1.1.1");
    rows[7] = request_row('N', "255.0.0.0");
    rows[15] = request_row('A', "10.1.1.2");
    rows[16] = request_row('G', "10.1.1.254");
    const size_t writes_before = writes();
    const std::string asked = request({"HEIP", 0, 0, kOwnMac}, rows);
    EXPECT_EQ(reply_to(asked + std::string(100, 'A')), asked + std::string(100, 'A') + std::string(22, '\0'))
        << "what follows the rows is not a row";
    EXPECT_STREQ(settings().fixIp, "10.1.1.2");
    EXPECT_STREQ(settings().fixMask, "255.0.0.0");
    EXPECT_STREQ(settings().fixGw, "10.1.1.254");
    EXPECT_EQ(writes(), writes_before + 4) << "once for each";
    EXPECT_EQ(device.take_calls(), (std::vector<std::string>{"SetDHCP 1"}));
}

TEST_F(MaintenanceCommands, NetworkWithAPortAndAnAddressShowsTheRowsAndAppliesTheAddress)
{
    const std::string reply =
        reply_to(request({"HEIP", 9}, {request_row('W', "6025"), request_row('A', "10.1.1.1")}));
    EXPECT_EQ(reply, FrameHeader({"HEIP", 9, 512, kOwnMac}).bytes() + identification());
    EXPECT_STREQ(settings().scpiPort, "6025");
    EXPECT_EQ(device.take_calls(), (std::vector<std::string>{"SetDHCP 1"}));
}

TEST_F(MaintenanceCommands, RowsMissingFromTheDatagramAreThoseOfThePreviousFrame)
{
    reply_to(FrameHeader{"HEID"}.bytes());
    device.take_calls();
    const std::string asked = FrameHeader({"HEIP", 0, 32}).bytes() + request_row('S', "7");
    reply_to(asked);
    EXPECT_STREQ(settings().fixMask, "255.255.0.0") << "row N of the identification";
    EXPECT_STREQ(settings().serialNum, "230000");
    EXPECT_EQ(settings().dhcpEnabled, 0) << "row B says ON";
    EXPECT_EQ(device.take_calls(), (std::vector<std::string>{"GetDHCP", "SetDHCP 0"}));
}

/** Checks the state when the interface is about to change. */
class WatchedDevice : public orvan_test::RecordingDevice {
public:
    int SetDHCP(uint8_t value) override
    {
        at_change();
        return RecordingDevice::SetDHCP(value);
    }
    std::function<void()> at_change;
};

TEST_F(MaintenanceCommands, NetworkReplyIsSentHalfASecondBeforeTheChange)
{
    WatchedDevice watched;
    peer.set_device(&watched);
    std::string reply;
    std::vector<std::string> waits;
    watched.at_change = [&] {
        reply = client.ready();
        waits = board->trace().lines_with({"delay 500000"});
    };
    serve(request({"HEIP"}, {request_row('A', "10.1.1.1")}));
    EXPECT_EQ(reply.size(), 588u);
    EXPECT_EQ(waits.size(), 1u);
    EXPECT_EQ(watched.calls, (std::vector<std::string>{"SetDHCP 1"}));
}

TEST_F(MaintenanceCommands, NetworkWaitsEvenWhenNothingChanges)
{
    reply_to(request({"HEIP"}, {request_row('W', "6025")}));
    EXPECT_EQ(board->trace().lines_with({"delay 500000"}).size(), 1u);
    reply_to(request({"HEIP"}, {request_row('Z', "")}));
    EXPECT_EQ(board->trace().lines_with({"delay 500000"}).size(), 2u);
    EXPECT_TRUE(device.calls.empty());
}

} // namespace
