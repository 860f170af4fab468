// Reading at start-up, factory settings, and records with arbitrary contents.

#include <cstddef>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

#include <syslog.h>

#include "settings_bench.h"

using namespace board_test;
using namespace HaldeElec::Orvan;
using namespace orvan_test;

namespace {

const LogLine kNoDefaults{LOG_ERR, "setFactoryDefault invalid parameters: no defaults"};

bool equal(const EEPROM_DEVICE_SETTINGS& left, const EEPROM_DEVICE_SETTINGS& right)
{
    return std::memcmp(&left, &right, sizeof left) == 0;
}

class ReadingSettings : public SettingsTest {
protected:
    EEPROM_DEVICE_SETTINGS& live() { return *(*peer)->getSettings(); }
    Blob signed_record(const EEPROM_DEVICE_SETTINGS& record, uint32_t generation = 57)
    {
        return peer->build(&record, 1, generation);
    }
    /** Every byte of the record except the model's, without a terminator anywhere. */
    static EEPROM_DEVICE_SETTINGS filled(char fill)
    {
        EEPROM_DEVICE_SETTINGS record;
        std::memset(&record, fill, sizeof record);
        std::memset(record.modelName, 0, sizeof record.modelName);
        std::strcpy(record.modelName, "OVX3651P");
        return record;
    }
};

TEST_F(ReadingSettings, TheFirstStartOfANewBoardStoresTheFactorySettings)
{
    EXPECT_EQ(read_data(), &g_portableModelsTable[1]);
    const EEPROM_DEVICE_SETTINGS factory = factory_settings();
    EXPECT_TRUE(equal(live(), factory));
    EXPECT_EQ(peer->generation(), 1u);
    EXPECT_EQ(cells(), bytes_of(peer->build(&factory, 1, 1)));
    EXPECT_EQ(file(), cells());
    EXPECT_EQ(eeprom_test(), BIT_PASS);
}

TEST_F(ReadingSettings, WithoutDefaultsANewBoardIsSignedEmpty)
{
    const EEPROM_DEVICE_SETTINGS nothing = {};
    EXPECT_EQ((*peer)->readData(nullptr, optPortable_Tbl, kOptionRows), nullptr);
    EXPECT_EQ(logs.count(kNoDefaults.priority, kNoDefaults.text), 1u);
    EXPECT_EQ(logs.lines().back(), (LogLine{LOG_INFO, ""}));
    EXPECT_EQ(live().numDevices, 1);
    EXPECT_EQ(peer->last_persisted().numDevices, 0);
    EXPECT_EQ(cells(), bytes_of(signed_record(nothing, 1)));
    EXPECT_EQ(file(), cells());

    restart();
    EXPECT_EQ(read_data(), &g_portableModelsTable[1]) << "such a copy is invalid, and the factory's is used";
    EXPECT_TRUE(equal(live(), factory_settings()));
}

TEST_F(ReadingSettings, WithoutAnOptionTableANewBoardIsSignedEmpty)
{
    EXPECT_EQ((*peer)->readData(&kDefaults, nullptr, kOptionRows), nullptr);
    restart();
    EXPECT_EQ((*peer)->readData(&kDefaults, optPortable_Tbl, 0), nullptr);
    EXPECT_EQ(logs.count(kNoDefaults.priority, kNoDefaults.text), 2u);
}

TEST_F(ReadingSettings, AGoodCopyNeedsNeitherDefaultsNorOptions)
{
    program(blob("230042"));
    EXPECT_EQ((*peer)->readData(nullptr, nullptr, 0), &g_portableModelsTable[1]);
    EXPECT_STREQ(live().serialNum, "230042");
    EXPECT_EQ(logs.count(kNoDefaults.priority, kNoDefaults.text), 0u);
}

TEST_F(ReadingSettings, WithoutDefaultsEverySerialIsReal)
{
    program(legacy("230000"));
    put_file(legacy(""));
    (*peer)->readData(nullptr, nullptr, 0);
    EXPECT_STREQ(live().serialNum, "230000");
    EXPECT_EQ(logs.count(LOG_ERR,
                         "[CPersistentData] EEPROM and backup file both have real, DIFFERENT serials - "
                         "keeping EEPROM (230000), backup had () - "),
              1u);
}

TEST_F(ReadingSettings, DefaultsWithoutASerialMakeEverySerialReal)
{
    program(legacy("230000"));
    put_file(legacy("230042"));
    const sDevDefaults_t defaults{"OVX3651P", "", nullptr, "D"};
    (*peer)->readData(&defaults, optPortable_Tbl, kOptionRows);
    EXPECT_STREQ(live().serialNum, "230000");
}

TEST_F(ReadingSettings, AModelTableWithNoRowsKnowsNoCopy)
{
    const sDevArch_t closing_row[] = {{}};
    program(blob("230042"));
    put_file(blob("230042"));
    peer.emplace(handler, closing_row);
    (*peer)->setEEPROMch(kEepromChannel);
    EXPECT_EQ(read_data(), nullptr);
    EXPECT_TRUE(equal(live(), factory_settings())) << "and the instrument runs with the factory's";
    EXPECT_EQ(logs.lines().back(), (LogLine{LOG_INFO, "OVX3651P"}));

    peer.emplace(handler, nullptr);
    (*peer)->setEEPROMch(kEepromChannel);
    EXPECT_EQ(read_data(), nullptr);
}

TEST_F(ReadingSettings, ADefaultModelWithoutARowReturnsNull)
{
    const sDevDefaults_t defaults{"OVX3651B", "", "230000", "D"};
    EXPECT_EQ((*peer)->readData(&defaults, optPortable_Tbl, kOptionRows), nullptr);
    EXPECT_STREQ(live().modelName, "OVX3651B");
    EXPECT_EQ(logs.lines().back(), (LogLine{LOG_INFO, "OVX3651B"}));
}

TEST_F(ReadingSettings, OneToFourModulesAreKeptAndAnyOtherNumberCountsAsOne)
{
    for (unsigned devices = 0; devices <= 255; ++devices) {
        EEPROM_DEVICE_SETTINGS record = settings("OVX3651P", "230042");
        record.numDevices = static_cast<uint8_t>(devices);
        program(signed_record(record));
        put_file(signed_record(record));
        restart();
        read_data();
        EXPECT_EQ(live().numDevices, devices >= 1 && devices <= 4 ? devices : 1u) << devices;
        EXPECT_EQ(peer->last_persisted().numDevices, devices);
    }
    EXPECT_EQ(board->eeprom().write_cycles(), 0u);
}

TEST_F(ReadingSettings, ACorrectedNumberOfModulesIsStoredByTheNextWrite)
{
    EEPROM_DEVICE_SETTINGS record = settings("OVX3651P", "230042");
    record.numDevices = 7;
    program(signed_record(record));
    put_file(signed_record(record));
    read_data();
    (*peer)->writeData(true, true);
    EXPECT_EQ(peer->generation(), 58u);
    record.numDevices = 1;
    EXPECT_EQ(cells(), bytes_of(signed_record(record, 58)));
    EXPECT_EQ(file(), cells());
}

TEST_F(ReadingSettings, TextsWithoutTerminatorAndNumbersOutOfRangeAreReadUnchanged)
{
    for (const char fill : {'x', '\xff', '\x01'}) {
        const EEPROM_DEVICE_SETTINGS record = filled(fill);
        program(signed_record(record));
        restart();
        EXPECT_EQ(read_data(), &g_portableModelsTable[1]);
        EXPECT_TRUE(equal(peer->last_persisted(), record));
        EEPROM_DEVICE_SETTINGS forced = record;
        forced.numDevices = 1;
        EXPECT_TRUE(equal(live(), forced));
        EXPECT_EQ(file(), bytes_of(signed_record(record)));
    }
}

TEST_F(ReadingSettings, ExtremeNumbersAreReadUnchanged)
{
    EEPROM_DEVICE_SETTINGS record = settings("OVX3651P", "230042");
    record.options = 0xffff;
    record.maxCwFreq = std::numeric_limits<int64_t>::min();
    record.minCwFreq = std::numeric_limits<int64_t>::max();
    record.maxCwPow = std::numeric_limits<int32_t>::min();
    record.dhcpEnabled = record.bootDBConfig = record.device_type = 255;
    program(signed_record(record, 0xffffffff));
    put_file(signed_record(record, 0xffffffff));
    read_data();
    EXPECT_TRUE(equal(live(), record));
    EXPECT_EQ(peer->generation(), 0xffffffffu);
}

TEST_F(ReadingSettings, SerialsWithoutTerminatorAreLoggedToTheEndOfTheirField)
{
    Blob eeprom = legacy("");
    Blob backup = legacy("");
    std::memset(&eeprom[33], 'e', 31);
    std::memset(&backup[33], 'f', 31);
    eeprom[64] = backup[64] = '!'; // of the next field
    program(eeprom);
    put_file(backup);
    read_data();
    EXPECT_EQ(logs.count(LOG_ERR, "[CPersistentData] EEPROM and backup file both have real, DIFFERENT "
                                  "serials - keeping EEPROM (" +
                                      std::string(31, 'e') + "), backup had (" + std::string(31, 'f') +
                                      ") - "),
              1u);
}

TEST_F(ReadingSettings, AModelWithoutTerminatorIsUnknown)
{
    EEPROM_DEVICE_SETTINGS record = settings("", "230042");
    std::memset(record.modelName, 'O', sizeof record.modelName);
    program(signed_record(record));
    read_data();
    EXPECT_TRUE(equal(live(), factory_settings()));
}

TEST_F(ReadingSettings, TheReservedAreaIsZeroedByADowngradeAndTheGenerationMayWrap)
{
    Blob newer = peer->build(blob("230042").data(), 2, 0xffffffff);
    std::memset(&newer[552], 0x77, 458);
    const uint32_t crc = peer->crc(newer);
    std::memcpy(&newer[1020], &crc, sizeof crc);
    program(newer);
    read_data();
    EXPECT_EQ(peer->generation(), 0u);
    EXPECT_EQ(peer->version(), 1);
    EXPECT_EQ(cells(), bytes_of(blob("230042", 0)));
    EXPECT_EQ(file(), cells());
}

TEST_F(ReadingSettings, TheHighestVersionIsDowngradedToo)
{
    program(blob("230042", 1, 0xffff));
    read_data();
    EXPECT_EQ(logs.count(LOG_WARNING, "[CPersistentData] EEPROM data version (65535) is newer than this "
                                      "firmware (1) - downgrading, newer fields discarded"),
              1u);
}

TEST_F(ReadingSettings, ABackupOfANewerLayoutIsRestoredUnchangedAndDowngradedByTheNextStart)
{
    put_file(blob("230042", 57, 2));
    read_data();
    EXPECT_EQ(peer->version(), 2);
    EXPECT_EQ(cells(), bytes_of(blob("230042", 57, 2)));
    restart();
    read_data();
    EXPECT_EQ(cells(), bytes_of(blob("230042", 58)));
    EXPECT_EQ(file(), cells());
}

TEST_F(ReadingSettings, SerialsThatDifferAfterTheirTerminatorDiffer)
{
    Blob backup = legacy("230042");
    backup[60] = 'x';
    program(legacy("230042"));
    put_file(backup);
    read_data();
    EXPECT_EQ(logs.count(LOG_ERR, "[CPersistentData] EEPROM and backup file both have real, DIFFERENT "
                                  "serials - keeping EEPROM (230042), backup had (230042) - "),
              1u);
}

TEST_F(ReadingSettings, OfTwoUnsignedCopiesWithTheDefaultSerialTheEepromIsUsed)
{
    const Blob eeprom = legacy("230000");
    Blob backup = eeprom;
    std::memcpy(&backup[offsetof(EEPROM_DEVICE_SETTINGS, hostName)], "renamed", 7);
    program(eeprom);
    put_file(backup);
    read_data();
    EXPECT_STREQ(live().hostName, "");
    EXPECT_EQ(cells(), bytes_of(rebuilt(eeprom, 1)));
    EXPECT_EQ(file(), cells());
}

TEST_F(ReadingSettings, ASignedBackupWinsOverAnUnsignedEepromEvenWithTheDefaultSerial)
{
    program(legacy("230042"));
    put_file(blob("230000"));
    read_data();
    EXPECT_STREQ(live().serialNum, "230000");
    EXPECT_EQ(cells(), bytes_of(blob("230000")));
    EXPECT_EQ(file(), cells());
}

TEST_F(ReadingSettings, ACopyUsedUnchangedKeepsTheBytesAfterItsRecord)
{
    const auto with_more = [this](uint16_t version) {
        Blob image = blob("230042", 57, version);
        std::memset(&image[552], 0x77, 458);
        const uint32_t crc = peer->crc(image);
        std::memcpy(&image[1020], &crc, sizeof crc);
        return image;
    };
    for (const uint16_t version : {uint16_t{0}, uint16_t{1}}) {
        program(with_more(version));
        put_file(Bytes(), 0);
        restart();
        read_data();
        EXPECT_EQ(cells(), bytes_of(with_more(version))) << version;
        EXPECT_EQ(file(), cells()) << version;
    }
    for (const uint16_t version : {uint16_t{0}, uint16_t{1}, uint16_t{2}}) { // only the EEPROM is downgraded
        Blob erased;
        erased.fill(0xff);
        program(erased);
        put_file(with_more(version));
        restart();
        read_data();
        EXPECT_EQ(cells(), bytes_of(with_more(version))) << version;
        EXPECT_EQ(file(), cells()) << version;
    }
}

TEST_F(ReadingSettings, AFailedRepairIsNotRetriedByAWriteWithoutAChange)
{
    put_file(blob("230042"));
    fault->absent(true);
    read_data();
    fault->absent(false);
    logs.clear();
    (*peer)->writeData(true, true);
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_INFO, "CPersistentData::writeData() no changes "
                                                             "detected, skipping write"}}));
    EXPECT_EQ(cells(), Bytes(image_size, 0xff));
    restart();
    read_data();
    EXPECT_EQ(cells(), bytes_of(blob("230042"))) << "the next start repairs it";
}

TEST_F(ReadingSettings, ARepairThatTheChipRefusesIsLoggedAndTheSettingsAreKept)
{
    put_file(blob("230042"));
    fault->flip_reply_bits(0x03, 3 + 500, 0x01); // the read-back differs
    EXPECT_EQ(read_data(), &g_portableModelsTable[1]);
    EXPECT_STREQ(live().serialNum, "230042");
    EXPECT_EQ(logs.count(LOG_ERR, "[CPersistentData] readData: EEPROM repair write/verify FAILED"), 1u);
    EXPECT_EQ(eeprom_test(), BIT_PASS) << "the read itself worked";
}

TEST_F(ReadingSettings, ReadingRegistersNoTest)
{
    EXPECT_FALSE(BITManager::getInstance(0)->setTestResult(CBIT, kEepromTest, BIT_PASS, ERR_NONE));
    EXPECT_EQ(BITManager::getInstance(0)->getTestsNumber(PBIT), 1) << "reading registers nothing";
    read_data();
    EXPECT_EQ(BITManager::getInstance(0)->getTestsNumber(PBIT), 1);
}

TEST_F(ReadingSettings, FactoryDefaultWritesNoStoreAndTouchesNoStamp)
{
    program(blob("230042"));
    put_file(blob("230042"));
    read_data();
    (*peer)->setFactoryDefault(&kDefaults, optPortable_Tbl, kOptionRows);
    EXPECT_TRUE(equal(live(), factory_settings()));
    EXPECT_STREQ(peer->last_persisted().serialNum, "230042");
    EXPECT_EQ(peer->generation(), 57u);
    EXPECT_EQ(cells(), bytes_of(blob("230042")));
}

TEST_F(ReadingSettings, FactoryDefaultWithANullArgumentOrNoOptionLeavesTheRecordAlone)
{
    live() = settings("OVX3651P", "230042");
    (*peer)->setFactoryDefault(nullptr, optPortable_Tbl, kOptionRows);
    (*peer)->setFactoryDefault(&kDefaults, nullptr, kOptionRows);
    (*peer)->setFactoryDefault(&kDefaults, optPortable_Tbl, 0);
    EXPECT_TRUE(equal(live(), settings("OVX3651P", "230042")));
    EXPECT_EQ(logs.lines(), (std::vector{kNoDefaults, kNoDefaults, kNoDefaults}));
}

TEST_F(ReadingSettings, FactoryOptionsAreCode8AndTheDefaultsOfTheRowsAfterIt)
{
    const auto options = [this](std::vector<optEntry_t> table) {
        (*peer)->setFactoryDefault(&kDefaults, table.data(), table.size());
        return live().options;
    };
    EXPECT_EQ(options({{0, 4, 1, 8, ""}}), 8);
    EXPECT_EQ(options({{0, 4, 1, 15, ""}}), 8) << "row 0 does not count";
    EXPECT_EQ(options({{}, {4, 1, 1, 1, "A"}, {15, 1, 1, 1, "B"}}), 0x8018);
    EXPECT_EQ(options({{}, {4, 0, 1, 1, "A"}}), 8) << "no width, no option";
    EXPECT_EQ(options({{}, {4, 2, 0, 3, ""}}), 0x38) << "of any width, changeable or not, with a word or not";
    EXPECT_EQ(options({{}, {14, 4, 1, 0xff, "A"}, {16, 1, 1, 1, "B"}, {255, 1, 1, 1, "C"}}), 0xc008)
        << "what exceeds the word is lost";
    (*peer)->setFactoryDefault(&kDefaults, optBenchtop_Tbl, kOptionRows);
    EXPECT_EQ(live().options, 0x0098);
    (*peer)->setFactoryDefault(&kDefaults, optKsr7000_Tbl, kOptionRows);
    EXPECT_EQ(live().options, 0x0118);
}

TEST_F(ReadingSettings, FactoryTextsAreCutToTheirFieldsAndMayBeMissing)
{
    const std::string model(60, 'm');
    const std::string serial(60, 's');
    const std::string company(60, 'c');
    const sDevDefaults_t longest{model.c_str(), company.c_str(), serial.c_str(), "DEF"};
    EXPECT_EQ((*peer)->readData(&longest, optPortable_Tbl, kOptionRows), nullptr);
    EXPECT_EQ(std::string(live().modelName, 31), std::string(31, 'm'));
    EXPECT_EQ(std::string(live().serialNum, 31), std::string(31, 's'));
    EXPECT_EQ(std::string(live().description, 31), std::string(31, 'c'));
    EXPECT_EQ(std::string(live().hostName, 31), std::string(31, 'm'));
    EXPECT_EQ(live().hardwareVersion, 'D');
    EXPECT_EQ(logs.lines().back(), (LogLine{LOG_INFO, std::string(31, 'm')}));

    const sDevDefaults_t missing{};
    (*peer)->setFactoryDefault(&missing, optPortable_Tbl, kOptionRows);
    EXPECT_STREQ(live().modelName, "");
    EXPECT_STREQ(live().hostName, "-");
    EXPECT_EQ(live().hardwareVersion, '\0');
}

} // namespace
