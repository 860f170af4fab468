#include <algorithm>
#include <ostream>

#include <syslog.h>

#include "settings_bench.h"

using namespace board_test;
using namespace HaldeElec::Orvan;
using namespace orvan_test;

namespace {

namespace fs = std::filesystem;

using SettingsStores = SettingsTest;

TEST_F(SettingsStores, TheBlobIsWrittenToTheStartOfTheEepromIn16Pages)
{
    const Blob image = blob("230042");
    EXPECT_TRUE(peer->write_eeprom(image));
    EXPECT_EQ(cells(0, 1024), bytes_of(image));
    EXPECT_EQ(cells(1024, 0x2000), Bytes(0x2000 - 1024, 0xff)) << "the rest of the chip is untouched";
    EXPECT_EQ(board->eeprom().write_cycles(), 16u);
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(SettingsStores, TheBlobIsReadFromTheEepromInOneMessage)
{
    program(blob("230042"));
    Blob image = {};
    EXPECT_TRUE(peer->read_eeprom(image));
    EXPECT_EQ(image, blob("230042"));
    EXPECT_EQ(logs.lines(),
              (std::vector<LogLine>{{LOG_INFO, "[CPersistentData] readEeprom: read 1024 bytes, ok"}}));
    EXPECT_EQ(messages().size(), 2u) << "one poll, one read";
}

TEST_F(SettingsStores, TheChannelThatWasSelectedIsSelectedAgain)
{
    Blob image = blob("230042");
    EXPECT_TRUE(peer->write_eeprom(image));
    EXPECT_EQ(channel(), 2u);
    EXPECT_TRUE(peer->read_eeprom(image));
    EXPECT_EQ(channel(), 2u);
    fault->absent(true);
    EXPECT_FALSE(peer->read_eeprom(image));
    EXPECT_EQ(channel(), 2u);
    EXPECT_TRUE(peer->write_eeprom(image)) << "a write is not verified";
    EXPECT_EQ(channel(), 2u);
}

TEST_F(SettingsStores, TheEepromIsReachedOnTheChannelThatWasSet)
{
    Blob image;
    (*peer)->setEEPROMch(4); // the fan's
    EXPECT_FALSE(peer->read_eeprom(image));
    (*peer)->setEEPROMch(5);
    EXPECT_TRUE(peer->read_eeprom(image));
}

TEST_F(SettingsStores, AnEepromThatDoesNotAnswerFailsTheRead)
{
    fault->stuck_busy(true);
    Blob image = {};
    EXPECT_FALSE(peer->read_eeprom(image));
    EXPECT_EQ(logs.lines(),
              (std::vector<LogLine>{{LOG_INFO, "[CPersistentData] readEeprom: read 1024 bytes, FAILED"}}));
    EXPECT_EQ(image, Blob{});
    EXPECT_EQ(err.text(), "[EEPROM] Busy timeout waiting for RDY\n");
}

TEST_F(SettingsStores, AFailedMessageFailsTheRead)
{
    fault->refuse_after(1);
    Blob image = {};
    EXPECT_FALSE(peer->read_eeprom(image));
    EXPECT_EQ(logs.count(LOG_INFO, "sendDataBySPI - error : -1"), 1u);
    EXPECT_EQ(logs.count(LOG_INFO, "[CPersistentData] readEeprom: read 1024 bytes, FAILED"), 1u);
}

TEST_F(SettingsStores, APowerCutWhileWritingLeavesAnInvalidImage)
{
    EXPECT_TRUE(peer->write_eeprom(blob("230000")));
    fault->cut_power_in(0x02, 3 + 40);
    EXPECT_TRUE(peer->write_eeprom(blob("230042")));
    fault->power_on();
    Blob image;
    ASSERT_TRUE(peer->read_eeprom(image));
    EXPECT_EQ(peer->classify(image), INVALID);
    EXPECT_TRUE(peer->write_eeprom(blob("230042")));
    ASSERT_TRUE(peer->read_eeprom(image));
    EXPECT_EQ(peer->classify(image), VERIFIED);
}

TEST_F(SettingsStores, TheBackupFileIsTheBlobAndNothingElse)
{
    const Blob image = blob("230042");
    EXPECT_TRUE(peer->write_file(image));
    EXPECT_EQ(file(), bytes_of(image));
    Blob read = {};
    EXPECT_TRUE(peer->read_file(read));
    EXPECT_EQ(read, image);
    EXPECT_EQ(logs.lines(),
              (std::vector<LogLine>{{LOG_INFO, "[CPersistentData] readFSBackup: read 1024 bytes, ok"}}));
}

TEST_F(SettingsStores, AMissingOrEmptyFileIsNoBackup)
{
    Blob image = {};
    EXPECT_FALSE(peer->read_file(image));
    put_file(image, 0);
    EXPECT_FALSE(peer->read_file(image));
    const LogLine line{LOG_INFO, "[CPersistentData] readFSBackup: file empty or missing"};
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{line, line}));
}

TEST_F(SettingsStores, ABackupThatCannotBeReachedIsLogged)
{
    fs::create_directories("/home/orvan/halde");
    std::ofstream(kFolder) << "x";
    Blob image = {};
    EXPECT_FALSE(peer->read_file(image));
    EXPECT_FALSE(peer->write_file(image));
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_ERR, "readFSBackup NullEeprom::init() failed"},
                                                  {LOG_ERR, "writeFSBackup NullEeprom::init() failed"}}));
}

TEST_F(SettingsStores, ABackupThatCannotBeWrittenFails)
{
    fs::create_directories(kFolder);
    fs::create_symlink("/no/such/folder/file", kFile); // reads as missing
    EXPECT_FALSE(peer->write_file(blob("230042")));
    EXPECT_EQ(err.text(), "NullEeprom fopen for write: No such file or directory\n");
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(SettingsStores, AShortFileLeavesTheRestOfTheBufferUnchanged)
{
    put_file(legacy("230042"), 552);
    Blob image;
    image.fill(0xa5);
    EXPECT_TRUE(peer->read_file(image));
    EXPECT_EQ(logs.count(LOG_INFO, "[CPersistentData] readFSBackup: read 552 bytes, ok"), 1u);
    EXPECT_TRUE(std::equal(image.begin(), image.begin() + 552, legacy("230042").begin()));
    EXPECT_TRUE(std::all_of(image.begin() + 552, image.end(), [](uint8_t byte) { return byte == 0xa5; }));
}

TEST_F(SettingsStores, AFileOf552BytesWithAKnownModelIsLegacy)
{
    put_file(legacy("230042"), 552);
    Blob image = {};
    ASSERT_TRUE(peer->read_file(image));
    EXPECT_EQ(peer->classify(image), LEGACY_VALID);
}

TEST_F(SettingsStores, ATruncatedSignedFileIsAtBestLegacy)
{
    put_file(blob("230042"), 1010);
    Blob image = {};
    ASSERT_TRUE(peer->read_file(image));
    EXPECT_EQ(peer->classify(image), LEGACY_VALID);
    put_file(blob("230042"), 20);
    image = {};
    ASSERT_TRUE(peer->read_file(image));
    EXPECT_EQ(peer->classify(image), LEGACY_VALID) << "the model is all there";
    put_file(blob("230042"), 9);
    image = {};
    ASSERT_TRUE(peer->read_file(image));
    EXPECT_EQ(peer->classify(image), INVALID);
}

TEST_F(SettingsStores, ALongerFileKeepsItsTailWhichIsNotRead)
{
    fs::create_directories(kFolder);
    std::ofstream(kFile, std::ios::binary) << std::string(2000, 't');
    EXPECT_TRUE(peer->write_file(blob("230042")));
    Bytes expected(2000, 't');
    std::ranges::copy(blob("230042"), expected.begin());
    EXPECT_EQ(file(), expected);
    Blob image = {};
    EXPECT_TRUE(peer->read_file(image));
    EXPECT_EQ(image, blob("230042"));
    EXPECT_EQ(logs.count(LOG_INFO, "[CPersistentData] readFSBackup: read 1024 bytes, ok"), 1u);
}

} // namespace
