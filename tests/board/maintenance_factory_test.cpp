// The factory command of the maintenance protocol, HEOT, byte for byte.

#include <cstring>
#include <string>
#include <vector>

#include <syslog.h>

#include "maintenance_commands_bench.h"

using namespace board_test;
using namespace HaldeElec::Orvan;

namespace {

TEST_F(MaintenanceCommands, FactoryWithoutRowsSendsTheIdentification)
{
    const Settings before = settings();
    const FrameHeader asked{"HEOT", 0x0102, 0, kForeignMac, 3, 4};
    FrameHeader header = asked;
    header.size = 512;
    EXPECT_EQ(reply_to(asked.bytes() + request_row('S', "7")), header.bytes() + identification());
    EXPECT_EQ(std::memcmp(&settings(), &before, sizeof before), 0);
    EXPECT_EQ(printed(), "HEOT: update option");
    EXPECT_EQ(take_logs(), (std::vector<std::string>{kAccepted}));
}

TEST_F(MaintenanceCommands, FactoryTextsAreStoredInTheirFields)
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

            // 32 in wire order, then the data as text.
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

TEST_F(MaintenanceCommands, ATextEndsAtItsTerminator)
{
    // Both are shorter than the previous values.
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

TEST_F(MaintenanceCommands, AFailedWriteIsNotReported)
{
    sim_board::insert_fault(board->spi(), "eeprom")->refuse_after(0);
    EXPECT_EQ(reply_to(request({"HEOT"}, {request_row('S', "230042")})),
              FrameHeader({"HEOT", 0, 512}).bytes() + identification());
    EXPECT_STREQ(settings().serialNum, "230042");
    EXPECT_EQ(logs.count(LOG_ERR, "CPersistentData::writeData() EEPROM write/verify FAILED - "), 1u);
}

} // namespace
