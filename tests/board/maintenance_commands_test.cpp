// The commands of the maintenance protocol, byte for byte.

#include <algorithm>
#include <functional>

#include "maintenance_bench.h"

using namespace board_test;
using namespace HaldeElec::Orvan;

namespace {

class MaintenanceCommands : public MaintenanceTest {
protected:
    static constexpr const char* kNothingChanged =
        "CPersistentData::writeData() no changes detected, skipping write";

    /** What HEIP prints for 17 rows: these letters, then empty rows. */
    static std::string printed_rows(std::vector<std::string> letters)
    {
        letters.resize(17, "0");
        std::string text;
        for (const std::string& letter : letters) {
            text += "HEIP: update parameter [0x" + letter + "] ()\n";
        }
        return text;
    }
    /** What HEOT logs for a row. */
    static void append_row(std::vector<std::string>& lines, const std::string& row)
    {
        lines.push_back("["s + row[0] + "] ");
        for (size_t i = 1; i < row.size(); ++i) {
            char text[8];
            std::snprintf(text, sizeof text, "%2X ", static_cast<unsigned>(static_cast<uint8_t>(row[i])));
            lines.emplace_back(text);
        }
        lines.emplace_back("\n");
    }
    static std::string header_of(const std::string& frame) { return frame.substr(0, FRMHEADERLEN); }
    /** Leaves zeros in the buffer after the header. */
    void clear_buffer() { serve(FrameHeader{"NONE"}.bytes() + std::string(FRMDATALEN, '\0')); }
};

struct TextRow {
    char letter;
    char (EEPROM_DEVICE_SETTINGS::*field)[kSettingsTextSize];
    const char* printed = ""; // name of the value
    std::vector<std::string> logs = {};
    bool at_once = true; // the interface gets it
};

/** The whole field, including the bytes after the text. */
std::string text_in(const EEPROM_DEVICE_SETTINGS& record, const TextRow& row)
{
    const auto& field = record.*row.field;
    return {field, sizeof field};
}

/** A text as stored in its field. */
std::string in_field(std::string text)
{
    text.resize(kSettingsTextSize);
    return text;
}

/** All but one text of two records. */
bool rest_is_equal(EEPROM_DEVICE_SETTINGS a, const EEPROM_DEVICE_SETTINGS& b, const TextRow& row)
{
    std::memcpy(a.*row.field, b.*row.field, kSettingsTextSize);
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// ---- HEID

TEST_F(MaintenanceCommands, IdentifySendsTheRowsWithTheOwnAddress)
{
    const FrameHeader asked{"HEID", 0x1234, 0x5678, kBroadcast, 0xABCD, 0x89ABCDEF, "\x12\x34"};
    FrameHeader told = asked;
    told.size = 512;
    told.mac = kOwnMac;
    EXPECT_EQ(reply_to(asked.bytes()), told.bytes() + identification());
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

TEST_F(MaintenanceCommands, IdentifyLeavesNothingOfARequestInTheData)
{
    reply_to(FrameHeader{"HEID"}.bytes() + std::string(FRMDATALEN, 'x'));
    EXPECT_EQ(peer.buffer().substr(FRMHEADERLEN), identification() + std::string(512, '\0'));
}

TEST_F(MaintenanceCommands, RowsAreThoseOfTheStart)
{
    const std::string before = reply_to(FrameHeader{"HEID"}.bytes());
    reply_to(request({"HEOT"}, {request_row('S', "230042")}));
    EXPECT_STREQ(settings().serialNum, "230042");
    EXPECT_EQ(reply_to(FrameHeader{"HEID"}.bytes()), before);
    CPersistentData::GetInstance()->setFlashParams(optPortable_Tbl, kOptionRows); // the next start
    EXPECT_NE(reply_to(FrameHeader{"HEID"}.bytes()).find("S230042"), std::string::npos);
}

// ---- HEIP

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

TEST_F(MaintenanceCommands, NetworkTextsGoIntoTheirFields)
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
            const std::string told = reply_to(asked);
            EXPECT_EQ(text_in(settings(), row), in_field(value)) << row.letter;
            EXPECT_TRUE(rest_is_equal(settings(), before, row)) << row.letter;
            EXPECT_EQ(writes(), writes_before + 1) << row.letter;
            const Settings in_eeprom = stored();
            EXPECT_EQ(std::memcmp(&in_eeprom, &settings(), sizeof in_eeprom), 0) << row.letter;
            if (row.at_once) {
                // The request and 22 bytes of what followed it in the buffer.
                EXPECT_EQ(told, FrameHeader({"HEIP", 3, 32, kOwnMac}).bytes() + asked.substr(22) +
                                    std::string(22, '\0'));
            } else {
                EXPECT_EQ(told, FrameHeader({"HEIP", 3, 512, kOwnMac}).bytes() + identification());
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
    const std::string told = reply_to(asked);
    EXPECT_EQ(told, FrameHeader({"HEIP", 0, 32, kOwnMac}).bytes() + request_row('A', "192.168.1.77") +
                        std::string(22, '\0'));
    EXPECT_EQ(told.size(), 76u);
    EXPECT_EQ(device.take_calls(), (std::vector<std::string>{"SetDHCP 1"}));
    EXPECT_STREQ(settings().fixIp, "192.168.1.77");
}

TEST_F(MaintenanceCommands, NetworkReplyIsAsLongAsTheDatagramWhateverItsSizeField)
{
    for (const uint16_t size : {uint16_t{1}, uint16_t{32}, uint16_t{1024}, EOD}) {
        clear_buffer();
        for (const size_t length : {size_t{22}, size_t{23}, size_t{54}, size_t{566}, size_t{1024}}) {
            const std::string asked = FrameHeader({"HEIP", 0, size}).bytes() + std::string(length - 22, '\0');
            const std::string told = reply_to(asked);
            EXPECT_EQ(told.size(), length + 22);
            EXPECT_EQ(told.substr(22), std::string(length, '\0'));
            EXPECT_EQ(told.substr(0, 22), FrameHeader({"HEIP", 0, size, kOwnMac}).bytes());
        }
    }
    EXPECT_TRUE(device.take_calls().empty());
}

TEST_F(MaintenanceCommands, NetworkReplyToALongRequestEndsInZeros)
{
    for (const size_t length : {size_t{1025}, size_t{1046}}) {
        const std::string data = std::string(544, '\0') + std::string(length - 22 - 544, 'x');
        const std::string told = reply_to(FrameHeader({"HEIP", 0, 1024}).bytes() + data);
        const size_t in_buffer = std::min<size_t>(length + 22, 1046);
        ASSERT_EQ(told.size(), length + 22);
        EXPECT_EQ(told.substr(22, data.size()), data);
        EXPECT_EQ(told.substr(in_buffer), std::string(told.size() - in_buffer, '\0'));
        clear_buffer();
    }
}

TEST_F(MaintenanceCommands, NetworkDhcpIsOnWithTheLetterYAlone)
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
        const std::string told = reply_to(request({"HEIP"}, {request_row('B', value)}));
        EXPECT_EQ(told.size(), 22u + 566) << "the request and 22 bytes";
        EXPECT_EQ(settings().dhcpEnabled, in_record) << value;
        EXPECT_EQ(stored().dhcpEnabled, in_record) << value;
        EXPECT_EQ(writes(), writes_before + (changes ? 1 : 0)) << value;
        EXPECT_EQ(logs.count(LOG_INFO, kNothingChanged), changes ? 0u : 1u) << value;
        std::vector<std::string> calls = {"GetDHCP"};
        if (applied) {
            calls.push_back(in_record != 0 ? "SetDHCP 1" : "SetDHCP 0");
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
    std::vector<std::string> rows(17, request_row('Z', "")); // a letter of no row
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
    const std::string told =
        reply_to(request({"HEIP", 9}, {request_row('W', "6025"), request_row('A', "10.1.1.1")}));
    EXPECT_EQ(told, FrameHeader({"HEIP", 9, 512, kOwnMac}).bytes() + identification());
    EXPECT_STREQ(settings().scpiPort, "6025");
    EXPECT_EQ(device.take_calls(), (std::vector<std::string>{"SetDHCP 1"}));
}

TEST_F(MaintenanceCommands, RowsThatTheDatagramDoesNotReachAreThoseOfTheFrameBefore)
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
    std::string told;
    std::vector<std::string> waits;
    watched.at_change = [&] {
        told = client.ready();
        waits = board->trace().lines_with({"delay 500000"});
    };
    serve(request({"HEIP"}, {request_row('A', "10.1.1.1")}));
    EXPECT_EQ(told.size(), 588u);
    EXPECT_EQ(waits.size(), 1u);
    EXPECT_EQ(watched.calls, (std::vector<std::string>{"SetDHCP 1"}));
}

TEST_F(MaintenanceCommands, NetworkWaitsAlsoWhenNothingIsToChange)
{
    reply_to(request({"HEIP"}, {request_row('W', "6025")}));
    EXPECT_EQ(board->trace().lines_with({"delay 500000"}).size(), 1u);
    reply_to(request({"HEIP"}, {request_row('Z', "")}));
    EXPECT_EQ(board->trace().lines_with({"delay 500000"}).size(), 2u);
    EXPECT_TRUE(device.calls.empty());
}

// ---- HEOT

TEST_F(MaintenanceCommands, FactoryWithoutRowsSendsTheIdentification)
{
    const Settings before = settings();
    const FrameHeader asked{"HEOT", 0x0102, 0, kForeignMac, 3, 4};
    FrameHeader told = asked;
    told.size = 512;
    EXPECT_EQ(reply_to(asked.bytes() + request_row('S', "7")), told.bytes() + identification());
    EXPECT_EQ(std::memcmp(&settings(), &before, sizeof before), 0);
    EXPECT_EQ(printed(), "HEOT: update option");
    EXPECT_EQ(take_logs(), (std::vector<std::string>{kAccepted}));
}

TEST_F(MaintenanceCommands, FactoryTextsGoIntoTheirFields)
{
    const std::string kLong = "0123456789012345678901234567890";
    for (const std::string& value : {"OVX5351P"s, ""s, kLong}) {
        const TextRow rows[] = {
            {'C', &EEPROM_DEVICE_SETTINGS::calibrationDate, "calibrationDate"},
            {'H', &EEPROM_DEVICE_SETTINGS::hostName, "hostName", {"[CUdpServer] HEOT - FLASH_HOSTNAME"}},
            {'I', &EEPROM_DEVICE_SETTINGS::modelName, "modelName", {"I", value}},
            {'P', &EEPROM_DEVICE_SETTINGS::pldVersion, "pldVersion"},
            {'S', &EEPROM_DEVICE_SETTINGS::serialNum, "boardSN", {"[CUdpServer] HEOT - FLASH_SERIALNUMBER"}},
        };
        for (const TextRow& row : rows) {
            const Settings before = settings();
            const size_t writes_before = writes();
            const std::string sent = request_row(row.letter, value);
            EXPECT_EQ(reply_to(request({"HEOT", 3, 0, kBroadcast}, {sent})),
                      FrameHeader({"HEOT", 3, 512, kBroadcast}).bytes() + identification());
            EXPECT_EQ(text_in(settings(), row), in_field(value)) << row.letter;
            EXPECT_TRUE(rest_is_equal(settings(), before, row)) << row.letter;
            EXPECT_EQ(writes(), writes_before + 1) << row.letter;
            const Settings in_eeprom = stored();
            EXPECT_EQ(std::memcmp(&in_eeprom, &settings(), sizeof in_eeprom), 0) << row.letter;
            EXPECT_EQ(printed(), "HEOT: update option"s + row.printed + ":" + value + " \n");

            // 32 in the order of the wire, then the data as a text.
            std::vector<std::string> lines = {kAccepted, "8192", row.letter + value};
            append_row(lines, sent);
            lines.insert(lines.end(), row.logs.begin(), row.logs.end());
            EXPECT_EQ(take_logs(), lines) << row.letter;
        }
    }
    EXPECT_TRUE(device.calls.empty());
}

TEST_F(MaintenanceCommands, FactoryOptionsAreMirroredExceptTheFrequencyCode)
{
    const struct {
        std::string sent;
        uint16_t options;
    } cases[] = {
        {"\x80\x00"s, 0x0008}, {"\x00\x00"s, 0x0000}, {"\xff\xff"s, 0xffff}, {"\x08\x00"s, 0x0010},
        {"\x04\x00"s, 0x0020}, {"\x01\x00"s, 0x0080}, {"\x00\x80"s, 0x0100}, {"\x00\x01"s, 0x8000},
        {"\xe0\x00"s, 0x000e}, {"\xe9\x12"s, 0x489e}, {"\x10\x00"s, 0x0001}, {"\x60\x40"s, 0x0206},
    };
    for (const auto& [sent, options] : cases) {
        Settings expected = settings();
        expected.options = options;
        const size_t writes_before = writes();
        const bool changes = settings().options != options;
        const std::string row = request_row('O', sent);
        EXPECT_EQ(reply_to(request({"HEOT"}, {row})).size(), 534u);
        EXPECT_EQ(settings().options, options) << std::hex << options;
        EXPECT_EQ(std::memcmp(&settings(), &expected, sizeof expected), 0);
        EXPECT_EQ(writes(), writes_before + (changes ? 1 : 0));
        std::vector<std::string> lines = {kAccepted, "8192", "O" + sent.substr(0, sent.find('\0'))};
        append_row(lines, row);
        lines.emplace_back("[CUdpServer] HEOT - FLASH_OPTION");
        lines.emplace_back("[CUdpServer] HEOT - FLASH_OPTION, writeData to flash");
        EXPECT_EQ(take_logs(), lines);
        EXPECT_EQ(printed(), "HEOT: update option");
    }
}

TEST_F(MaintenanceCommands, ATextEndsAtItsTerminatorWhateverFollows)
{
    // Both are shorter than what has been there.
    reply_to(request({"HEIP"}, {request_row('A', "10.1.1.1\0and more"s)}));
    EXPECT_EQ(std::string(settings().fixIp, kSettingsTextSize), in_field("10.1.1.1"));
    printed();
    reply_to(request({"HEOT"}, {request_row('S', "7\0and more"s)}));
    EXPECT_EQ(std::string(settings().serialNum, kSettingsTextSize), in_field("7"));
    EXPECT_EQ(printed(), "HEOT: update optionboardSN:7 \n");
}

TEST_F(MaintenanceCommands, FactorySkipsForeignLetters)
{
    const Settings before = settings();
    for (int letter = 1; letter < 256; ++letter) {
        if (std::strchr("CHIOPS", letter) != nullptr) {
            continue;
        }
        const std::string row = request_row(static_cast<char>(letter), "7");
        EXPECT_EQ(reply_to(request({"HEOT"}, {row})).size(), 534u);
        EXPECT_EQ(logs.count(LOG_INFO, kNothingChanged), 0u) << letter;
        std::vector<std::string> lines = {kAccepted, "8192", static_cast<char>(letter) + "7"s};
        append_row(lines, row);
        EXPECT_EQ(take_logs(), lines);
    }
    EXPECT_EQ(std::memcmp(&settings(), &before, sizeof before), 0);
}

TEST_F(MaintenanceCommands, FactoryTakesAll17RowsAndLogsThoseWithALetter)
{
    std::vector<std::string> rows(17, request_row('\0', "passed over"));
    rows[3] = request_row('S', "230041");
    rows[16] = request_row('S', "230042");
    EXPECT_EQ(reply_to(request({"HEOT"}, rows)).size(), 534u);
    EXPECT_STREQ(settings().serialNum, "230042");
    std::vector<std::string> lines = {kAccepted, "8194", ""}; // 544 on the wire is 02 20
    for (const size_t row : {size_t{3}, size_t{16}}) {
        append_row(lines, rows[row]);
        lines.emplace_back("[CUdpServer] HEOT - FLASH_SERIALNUMBER");
    }
    EXPECT_EQ(take_logs(), lines);
}

TEST_F(MaintenanceCommands, FactoryLogsDataThatFillsTheFrame)
{
    const std::string data(FRMDATALEN, 'z');
    reply_to(FrameHeader({"HEOT", 0, 1024}).bytes() + data);
    const std::vector<std::string> lines = take_logs();
    ASSERT_GT(lines.size(), 2u);
    EXPECT_EQ(lines[1], "4") << "04 00";
    EXPECT_EQ(lines[2], data);
}

TEST_F(MaintenanceCommands, FactoryIsWrittenForEveryRow)
{
    const size_t writes_before = writes();
    reply_to(request({"HEOT"}, {request_row('C', "010203"), request_row('P', "B-2"), request_row('O', "\x80"),
                                request_row('C', "010203")}));
    EXPECT_EQ(writes(), writes_before + 3);
    EXPECT_EQ(logs.count(LOG_INFO, kNothingChanged), 1u) << "the last";
}

TEST_F(MaintenanceCommands, AFailedWriteDoesNotShow)
{
    sim_board::insert_fault(board->spi(), "eeprom")->refuse_after(0);
    EXPECT_EQ(reply_to(request({"HEOT"}, {request_row('S', "230042")})),
              FrameHeader({"HEOT", 0, 512}).bytes() + identification());
    EXPECT_STREQ(settings().serialNum, "230042");
    EXPECT_EQ(logs.count(LOG_ERR, "CPersistentData::writeData() EEPROM write/verify FAILED - "), 1u);
}

// ---- HECT

TEST_F(MaintenanceCommands, OptionTableIsSentAsItIsInMemory)
{
    device.option_table = std::string(reinterpret_cast<const char*>(optPortable_Tbl), sizeof optPortable_Tbl);
    const FrameHeader asked{"HECT", 5, 77, kForeignMac, 6, 7};
    FrameHeader told = asked;
    told.size = 128;
    const std::string reply = reply_to(asked.bytes());
    EXPECT_EQ(reply, told.bytes() + device.option_table);
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

TEST(MaintenanceRows, AreLoggedAsLongAsTheyAreWhole)
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
