// Invalid records and tables, and the effect of each on a complete start.

#include <array>
#include <cstddef>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

#include <syslog.h>

#include "bare_device.h"
#include "settings_bench.h"

using namespace board_test;
using namespace HaldeElec::Orvan;
using namespace orvan_test;

namespace {

using D = IOrvanDeviceManager;
using Text = char (EEPROM_DEVICE_SETTINGS::*)[kSettingsTextSize];

constexpr size_t kNoRow = FP_MAX_LINE;

/** A text of the record, its identification row and the operation that reads it, if any. */
struct Field {
    const char* name;
    Text text;
    size_t row;
    int (D::*get)(uint8_t*);
};

// clang-format off
const Field kFields[] = {
    {"serialNum",       &EEPROM_DEVICE_SETTINGS::serialNum,       8,      nullptr}, // GetSerial cuts at 15
    {"calibrationDate", &EEPROM_DEVICE_SETTINGS::calibrationDate, 11,     nullptr},
    {"description",     &EEPROM_DEVICE_SETTINGS::description,     6,      nullptr},
    {"hostName",        &EEPROM_DEVICE_SETTINGS::hostName,        5,      &D::GetHostname},
    {"fixIp",           &EEPROM_DEVICE_SETTINGS::fixIp,           kNoRow, &D::GetIPAddress},
    {"fixMask",         &EEPROM_DEVICE_SETTINGS::fixMask,         kNoRow, &D::GetNetMask},
    {"mac",             &EEPROM_DEVICE_SETTINGS::mac,             kNoRow, nullptr},
    {"fixGw",           &EEPROM_DEVICE_SETTINGS::fixGw,           kNoRow, &D::GetGateway},
    {"dns1",            &EEPROM_DEVICE_SETTINGS::dns1,            kNoRow, &D::GetDNS1},
    {"dns2",            &EEPROM_DEVICE_SETTINGS::dns2,            kNoRow, &D::GetDNS2},
    {"scpiPort",        &EEPROM_DEVICE_SETTINGS::scpiPort,        12,     nullptr},
    {"pldVersion",      &EEPROM_DEVICE_SETTINGS::pldVersion,      15,     nullptr},
    {"fwVersion",       &EEPROM_DEVICE_SETTINGS::fwVersion,       9,      &D::GetFirmware},
    {"scpiRevision",    &EEPROM_DEVICE_SETTINGS::scpiRevision,    kNoRow, nullptr},
    {"fpgaVersion",     &EEPROM_DEVICE_SETTINGS::fpgaVersion,     14,     &D::GetFpga},
};
// clang-format on

class BadSettings : public SettingsTest {
protected:
    EEPROM_DEVICE_SETTINGS& live() { return *(*peer)->getSettings(); }
    Blob signed_record(const EEPROM_DEVICE_SETTINGS& record, uint32_t generation = 57)
    {
        return peer->build(&record, 1, generation);
    }
    /** Starts with the option table of a new process; a start writes the current options into it. */
    const sDevArch_t* start()
    {
        static const std::vector<optEntry_t> kFactory(optPortable_Tbl, optPortable_Tbl + kOptionRows);
        std::vector<optEntry_t> table = kFactory;
        return start(table.data(), table.size());
    }
    /** What a device does with the settings at start-up. @return the model's row */
    const sDevArch_t* start(optEntry_t* options, size_t rows)
    {
        const sDevArch_t* const model = (*peer)->readData(&kDefaults, options, rows);
        (*peer)->setDeviceArch(model);
        (*peer)->setFlashParams(options, rows);
        (*peer)->writeData(true, true);
        return model;
    }
    const sDevArch_t* start_on(const EEPROM_DEVICE_SETTINGS& record)
    {
        program(signed_record(record));
        put_file(signed_record(record));
        restart();
        return start();
    }
    std::string row(size_t line) { return {peer->flash_params()[line], FP_MAX_ENTRY_LEN}; }
    static std::string row_of(char letter, const std::string& text)
    {
        std::string bytes = letter + text;
        bytes.resize(FP_MAX_ENTRY_LEN);
        return bytes;
    }
    std::string identification()
    {
        BareDevice device(stand_ins, peer->data);
        std::array<uint8_t, 129> text;
        text.fill(0xa5);
        EXPECT_EQ(device.GetIdentification(text.data()), 0);
        EXPECT_EQ(text.back(), 0xa5);
        EXPECT_EQ(text[127], 0);
        return reinterpret_cast<const char*>(text.data());
    }
    /** Both stores hold the live record, signed with this generation. */
    void expect_stored(uint32_t generation)
    {
        EXPECT_EQ(cells(), bytes_of(signed_record(live(), generation)));
        EXPECT_EQ(file(), cells());
    }
};

TEST_F(BadSettings, ATextWithoutTerminatorEndsWithItsField)
{
    const std::string filled(kSettingsTextSize, 'x');
    for (const Field& field : kFields) {
        SCOPED_TRACE(field.name);
        EEPROM_DEVICE_SETTINGS record;
        std::memset(&record, 'y', sizeof record); // no terminator anywhere after it
        std::memset(record.modelName, 0, sizeof record.modelName);
        std::strcpy(record.modelName, "OVX3651P");
        std::memcpy(record.*field.text, filled.data(), filled.size());
        EXPECT_EQ(start_on(record), &g_portableModelsTable[1]);
        EXPECT_EQ(std::memcmp(live().*field.text, filled.data(), filled.size()), 0);
        expect_stored(58);

        for (const Field& other : kFields) {
            if (other.row != kNoRow) {
                EXPECT_EQ(row(other.row), row_of(flash_ids[other.row],
                                                 std::string(31, other.text == field.text ? 'x' : 'y')));
            }
        }
        if (field.get != nullptr) {
            BareDevice device(stand_ins, peer->data);
            std::array<uint8_t, kSettingsTextSize + 1> text;
            text.fill(0xa5);
            EXPECT_EQ((device.*field.get)(text.data()), 0);
            EXPECT_EQ(std::string(text.begin(), text.end()), filled + '\xa5');
        }
    }
}

TEST_F(BadSettings, AModelWithoutTerminatorInvalidatesItsCopy)
{
    EEPROM_DEVICE_SETTINGS record = settings("", "230042");
    std::memset(record.modelName, 'x', sizeof record.modelName);
    EXPECT_EQ(start_on(record), &g_portableModelsTable[1]);
    EXPECT_EQ(identification(), "Halde Electronics,OVX3651P,230000,01.0.001");
    expect_stored(2);
}

TEST_F(BadSettings, AModelWithMoreAfterItsTerminatorIsKnown)
{
    EEPROM_DEVICE_SETTINGS record = settings("", "230042");
    std::memset(record.modelName, 'x', sizeof record.modelName);
    std::strcpy(record.modelName, "OVX3651P");
    EXPECT_EQ(start_on(record), &g_portableModelsTable[1]);
    EXPECT_EQ(identification(), "Halde Electronics,OVX3651P,230042,1.19.140");
    EXPECT_EQ(row(7), row_of('I', "OVX3651P"));
    expect_stored(58);
}

TEST_F(BadSettings, IdentificationOfFilledTextsFitsItsBuffer)
{
    EEPROM_DEVICE_SETTINGS record = settings("OVX3651P", "");
    std::memset(record.serialNum, 's', sizeof record.serialNum);
    std::memset(record.fwVersion, 'f', sizeof record.fwVersion);
    start_on(record);
    EXPECT_EQ(identification(),
              "Halde Electronics,OVX3651P," + std::string(31, 's') + "," + std::string(31, 'f'));
}

TEST_F(BadSettings, ASerialWithoutTerminatorIsRealThoughItBeginsAsTheDefaultOne)
{
    Blob image = legacy("");
    std::memset(&image[33], 0, 31);
    std::memcpy(&image[33], "2300000000000000000000000000000", 31);
    program(legacy("230000"));
    put_file(image);
    start();
    EXPECT_EQ(std::string(live().serialNum, 8), "23000000");
    EXPECT_EQ(logs.count(LOG_WARNING, "[CPersistentData] EEPROM had default serial, backup file had a real "
                                      "serial - using backup file"),
              1u);
}

TEST_F(BadSettings, NumbersImpliedByTheModelAreCorrectedAndOthersKept)
{
    EEPROM_DEVICE_SETTINGS record = settings("OVX3651P", "230042");
    record.options = 0xffff;
    record.numDevices = 200;
    record.maxCwFreq = std::numeric_limits<int64_t>::min();
    record.minCwFreq = std::numeric_limits<int64_t>::max();
    record.defCwFreq = -1;
    record.maxCwPow = std::numeric_limits<int32_t>::min();
    record.minCwPow = std::numeric_limits<int32_t>::max();
    record.device_type = record.dhcpEnabled = record.bootDBConfig = 255;
    record.vendor_id = record.product_id = 0xffff;
    EXPECT_EQ(start_on(record), &g_portableModelsTable[1]);

    EEPROM_DEVICE_SETTINGS expected = record;
    expected.options = 0xfffe;
    expected.numDevices = 1;
    expected.maxCwFreq = 20'000'000'000;
    expected.device_type = 1;
    expected.vendor_id = 0x168c;
    expected.product_id = 0x3651;
    EXPECT_EQ(std::memcmp(&live(), &expected, sizeof expected), 0);
    EXPECT_EQ(row(10), row_of('O', "20G,MOD,PLS,LP,EMU,PAT,UFS,BAT"));
    EXPECT_EQ(row(4), row_of('B', "ON"));
    expect_stored(58);
}

TEST_F(BadSettings, AScpiPortThatIsNoPortIsReadAsItsDigits)
{
    const std::pair<const char*, uint16_t> ports[] = {{"", 0},         {"none", 0},  {"5025x", 5025},
                                                      {" 5025", 5025}, {"65536", 0}, {"-1", 65535}};
    for (const auto& [text, expected] : ports) {
        EEPROM_DEVICE_SETTINGS record = settings("OVX3651P", "230042");
        std::strcpy(record.scpiPort, text);
        start_on(record);
        BareDevice device(stand_ins, peer->data);
        uint16_t port = 7;
        EXPECT_EQ(device.GetScpiPort(&port), 0);
        EXPECT_EQ(port, expected) << text;
        EXPECT_EQ(row(12), row_of('W', text));
    }
}

TEST_F(BadSettings, WithAnEmptyModelTableEveryStartSignsTheFactorySettingsAgain)
{
    const sDevArch_t closing_row[] = {{}};
    for (const sDevArch_t* const table : {closing_row, static_cast<const sDevArch_t*>(nullptr)}) {
        program(blob("230042"));
        put_file(blob("230042"));
        for (int time = 0; time < 2; ++time) {
            peer.emplace(handler, table);
            (*peer)->setEEPROMch(kEepromChannel);
            const size_t cycles = board->eeprom().write_cycles();
            EXPECT_EQ(start(), nullptr);
            const EEPROM_DEVICE_SETTINGS factory = factory_settings();
            EXPECT_EQ(std::memcmp(&live(), &factory, sizeof factory), 0) << "no model data is entered";
            EXPECT_EQ(row(7), row_of('I', "OVX3651P"));
            EXPECT_EQ(row(10), row_of('O', "8G,MOD,BAT")) << "the factory's frequency code";
            expect_stored(1);
            EXPECT_EQ(board->eeprom().write_cycles(), cycles + 16) << "by the repair alone";
        }
    }
}

TEST_F(BadSettings, WithoutOptionsAGoodCopyIsUsedAndTheRowsStayEmpty)
{
    const std::pair<optEntry_t*, size_t> tables[] = {
        {nullptr, 0}, {nullptr, kOptionRows}, {optPortable_Tbl, 0}};
    for (const auto& [options, rows] : tables) {
        program(blob("230042"));
        put_file(blob("230042"));
        restart();
        logs.clear();
        EXPECT_EQ(start(options, rows), &g_portableModelsTable[1]);
        EXPECT_EQ(identification(), "Halde Electronics,OVX3651P,230042,1.19.140");
        for (size_t line = 0; line < FP_MAX_LINE; ++line) {
            EXPECT_EQ(row(line), std::string(FP_MAX_ENTRY_LEN, '\0')) << line;
        }
        EXPECT_EQ(logs.count(LOG_ERR, "setFlashParams invalid parameters: no defaults"), 1u);
        EXPECT_EQ(logs.count(LOG_ERR, "setFactoryDefault invalid parameters: no defaults"), 0u);
        expect_stored(58);
    }
    EXPECT_TRUE(stand_ins.calls().empty()) << "the host name stays";
}

TEST_F(BadSettings, WithoutOptionsANewBoardHasEmptySettingsUntilTheNextGoodStart)
{
    EXPECT_EQ(start(nullptr, 0), nullptr);
    EXPECT_EQ(identification(), "Halde Electronics,,,");
    EXPECT_EQ(live().numDevices, 1);
    expect_stored(2); // the number of modules was corrected
    restart();
    EXPECT_EQ(start(), &g_portableModelsTable[1]);
    EXPECT_EQ(identification(), "Halde Electronics,OVX3651P,230000,01.0.001");
    expect_stored(2);
}

TEST_F(BadSettings, AnOptionTableOfOneRowHasAFrequencyAndNoOptions)
{
    std::vector<optEntry_t> table(optPortable_Tbl, optPortable_Tbl + 1);
    EXPECT_EQ(start(table.data(), table.size()), &g_portableModelsTable[1]);
    EXPECT_EQ(live().options, 14);
    EXPECT_EQ(row(10), row_of('O', "20G"));
}

} // namespace
