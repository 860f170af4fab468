// Writing a change to both stores.

#include <ostream>
#include <string>
#include <vector>

#include <syslog.h>

#include "settings_bench.h"

using namespace board_test;
using namespace HaldeElec::Orvan;
using namespace orvan_test;

namespace {

namespace fs = std::filesystem;

const LogLine kUnchanged{LOG_INFO, "CPersistentData::writeData() no changes detected, skipping write"};
const LogLine kReadBack{LOG_INFO, "[CPersistentData] readEeprom: read 1024 bytes, ok"};
const LogLine kReadFailed{LOG_INFO, "[CPersistentData] readEeprom: read 1024 bytes, FAILED"};
const LogLine kEepromFailed{LOG_ERR, "CPersistentData::writeData() EEPROM write/verify FAILED - "};
const LogLine kFileFailed{LOG_ERR, "CPersistentData::writeData() backup file write FAILED"};

class WritingSettings : public SettingsTest {
protected:
    void SetUp() override
    {
        SettingsTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        start_with(blob("230042"));
    }
    void start_with(const Blob& image)
    {
        program(image);
        put_file(image);
        restart();
        read_data();
        cycles = board->eeprom().write_cycles();
        logs.clear();
    }
    void change(const char* serial)
    {
        std::memset((*peer)->getSettings()->serialNum, 0, kSettingsTextSize);
        std::strcpy((*peer)->getSettings()->serialNum, serial);
    }
    void write(bool to_eeprom = true, bool to_file = true) { (*peer)->writeData(to_eeprom, to_file); }
    size_t written_pages() { return board->eeprom().write_cycles() - cycles; }

    size_t cycles = 0;
};

TEST_F(WritingSettings, AChangeIsWrittenToBothStoresWithTheNextGeneration)
{
    change("230050");
    write();
    EXPECT_EQ(cells(), bytes_of(blob("230050", 58)));
    EXPECT_EQ(file(), cells());
    EXPECT_EQ(peer->generation(), 58u);
    EXPECT_EQ(peer->version(), 1);
    EXPECT_STREQ(peer->last_persisted().serialNum, "230050");
    EXPECT_EQ(written_pages(), 16u);
    EXPECT_EQ(logs.lines(), (std::vector{kReadBack}));
    EXPECT_EQ(channel(), 2u);
}

TEST_F(WritingSettings, WithoutAChangeNothingIsWritten)
{
    write();
    write(true, false);
    write(false, true);
    EXPECT_EQ(written_pages(), 0u);
    EXPECT_EQ(peer->generation(), 57u);
    EXPECT_EQ(cells(), bytes_of(blob("230042")));
    EXPECT_EQ(logs.lines(), (std::vector{kUnchanged, kUnchanged, kUnchanged}));
}

TEST_F(WritingSettings, TheSecondOfTwoWritesDoesNothing)
{
    change("230050");
    write();
    logs.clear();
    write();
    EXPECT_EQ(written_pages(), 16u);
    EXPECT_EQ(peer->generation(), 58u);
    EXPECT_EQ(logs.lines(), (std::vector{kUnchanged}));
}

TEST_F(WritingSettings, ForNeitherStoreDoesNothing)
{
    change("230050");
    write(false, false);
    EXPECT_EQ(peer->generation(), 57u);
    EXPECT_EQ(written_pages(), 0u);
    EXPECT_EQ(file(), bytes_of(blob("230042")));
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(WritingSettings, EveryByteOfTheRecordCountsAsAChange)
{
    auto* const record = reinterpret_cast<uint8_t*>((*peer)->getSettings());
    uint32_t generation = 57;
    for (size_t i = 0; i < sizeof(EEPROM_DEVICE_SETTINGS); i += 29) {
        record[i] ^= 0x80;
        write();
        EXPECT_EQ(peer->generation(), ++generation) << "byte " << i;
    }
    record[551] ^= 1;
    write();
    EXPECT_EQ(peer->generation(), ++generation);
}

TEST_F(WritingSettings, ARevertedChangeIsNoChange)
{
    change("230050");
    change("230042");
    write();
    EXPECT_EQ(logs.lines(), (std::vector{kUnchanged}));
}

TEST_F(WritingSettings, ForTheEepromAloneTheFileKeepsTheOldGeneration)
{
    change("230050");
    write(true, false);
    EXPECT_EQ(cells(), bytes_of(blob("230050", 58)));
    EXPECT_EQ(file(), bytes_of(blob("230042")));
    logs.clear();
    write(false, true);
    EXPECT_EQ(logs.lines(), (std::vector{kUnchanged})) << "the EEPROM's copy decides, for the file too";
}

TEST_F(WritingSettings, ForTheFileAloneTheChangeStaysNew)
{
    change("230050");
    write(false, true);
    EXPECT_EQ(file(), bytes_of(blob("230050", 58)));
    EXPECT_EQ(written_pages(), 0u);
    EXPECT_STREQ(peer->last_persisted().serialNum, "230042");
    write(false, true);
    EXPECT_EQ(file(), bytes_of(blob("230050", 59)));
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(WritingSettings, AFailedEepromIsLoggedTheFileIsNewerAndTheNextWriteRetries)
{
    change("230050");
    fault->absent(true);
    write();
    EXPECT_EQ(logs.lines(), (std::vector{kReadFailed, kEepromFailed}));
    EXPECT_EQ(peer->generation(), 58u);
    EXPECT_STREQ(peer->last_persisted().serialNum, "230042");
    EXPECT_EQ(cells(), bytes_of(blob("230042")));
    EXPECT_EQ(file(), bytes_of(blob("230050", 58)));

    fault->absent(false);
    write();
    EXPECT_EQ(peer->generation(), 59u);
    EXPECT_EQ(cells(), bytes_of(blob("230050", 59)));
    EXPECT_EQ(file(), cells());
}

TEST_F(WritingSettings, AFileNewerThanTheEepromIsRevertedByTheNextStart)
{
    change("230050");
    fault->absent(true);
    write();
    fault->absent(false);
    restart();
    logs.clear();
    read_data();
    EXPECT_STREQ((*peer)->getSettings()->serialNum, "230042");
    EXPECT_EQ(file(), bytes_of(blob("230042")));
    EXPECT_EQ(logs.count(LOG_ERR, "[CPersistentData] EEPROM and file both VERIFIED but differ - keeping "
                                  "EEPROM, investigate"),
              1u);
}

TEST_F(WritingSettings, AReadBackMismatchIsAFailure)
{
    for (const size_t position : {0u, 500u, 1023u}) {
        change(("2301" + std::to_string(position)).c_str());
        fault->flip_reply_bits(0x03, 3 + position, 0x10);
        logs.clear();
        write(true, false);
        EXPECT_EQ(logs.lines(), (std::vector{kReadBack, kEepromFailed})) << position;
        EXPECT_STREQ(peer->last_persisted().serialNum, "230042");
    }
    fault->flip_reply_bits(0, 0, 0);
    write();
    EXPECT_EQ(peer->generation(), 61u);
    EXPECT_STREQ(peer->last_persisted().serialNum, "2301"
                                                   "1023");
}

TEST_F(WritingSettings, APageThatIsNotWrittenIsAFailure)
{
    change("230050");
    fault->refuse_after(8);
    write();
    EXPECT_EQ(logs.count(kEepromFailed.priority, kEepromFailed.text), 1u);
    EXPECT_STREQ(peer->last_persisted().serialNum, "230042");
    EXPECT_EQ(file(), bytes_of(blob("230050", 58)));
}

TEST_F(WritingSettings, AFailedFileIsLoggedAndTheChangeCountsAsStored)
{
    fs::remove(kFile);
    fs::create_symlink(kFile, kFile);
    change("230050");
    write();
    EXPECT_EQ(logs.lines(),
              (std::vector{kReadBack, {LOG_ERR, "writeFSBackup NullEeprom::init() failed"}, kFileFailed}));
    EXPECT_EQ(cells(), bytes_of(blob("230050", 58)));
    EXPECT_STREQ(peer->last_persisted().serialNum, "230050");

    fs::remove(kFile);
    restart();
    read_data();
    EXPECT_EQ(file(), cells()) << "the next start restores the file";
}

TEST_F(WritingSettings, BothStoresFailingIsLoggedTwice)
{
    fs::remove(kFile);
    fs::create_symlink(kFile, kFile);
    fault->absent(true);
    change("230050");
    write();
    EXPECT_EQ(logs.count(kEepromFailed.priority, kEepromFailed.text), 1u);
    EXPECT_EQ(logs.count(kFileFailed.priority, kFileFailed.text), 1u);
    EXPECT_STREQ((*peer)->getSettings()->serialNum, "230050") << "the settings in memory stay";
}

TEST_F(WritingSettings, ABusyEepromIsAFailure)
{
    fault->stuck_busy(true);
    change("230050");
    write(true, false);
    EXPECT_EQ(logs.lines(), (std::vector{kReadFailed, kEepromFailed}));
}

TEST_F(WritingSettings, TheFirstChangeMovesAnotherLayoutToTheCurrentOne)
{
    start_with(blob("230042", 57, 0));
    EXPECT_EQ(peer->version(), 0);
    change("230050");
    write();
    EXPECT_EQ(peer->version(), 1);
    EXPECT_EQ(cells(), bytes_of(blob("230050", 58)));
}

TEST_F(WritingSettings, TheGenerationWraps)
{
    start_with(blob("230042", 0xffffffff));
    change("230050");
    write();
    EXPECT_EQ(peer->generation(), 0u);
    EXPECT_EQ(cells(), bytes_of(blob("230050", 0)));
}

TEST_F(WritingSettings, ALongFileKeepsItsTail)
{
    Bytes longer = bytes_of(blob("230042"));
    longer.insert(longer.end(), 300, 't');
    put_file(longer, longer.size());
    change("230050");
    write();
    Bytes expected = bytes_of(blob("230050", 58));
    expected.insert(expected.end(), 300, 't');
    EXPECT_EQ(file(), expected);
}

TEST_F(WritingSettings, FilledTextsAreWrittenUnchanged)
{
    EEPROM_DEVICE_SETTINGS& record = *(*peer)->getSettings();
    std::memset(&record, 'x', sizeof record);
    write();
    EXPECT_EQ(cells(), bytes_of(peer->build(&record, 1, 58)));
    EXPECT_EQ(file(), cells());
}

} // namespace
