// A power cut after every written byte, and during every page write cycle.

#include <algorithm>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "power_cut.h"
#include "settings_bench.h"

using namespace board_test;
using namespace HaldeElec::Orvan;
using namespace orvan_test;

namespace {

namespace fs = std::filesystem;

constexpr size_t kPage = 64;

/** The cuts that lost data, as "", "7" or "3-5, 9". */
std::string ranges(const std::vector<size_t>& numbers)
{
    std::string text;
    for (size_t i = 0; i < numbers.size(); ++i) {
        const size_t first = numbers[i];
        while (i + 1 < numbers.size() && numbers[i + 1] == numbers[i] + 1) {
            ++i;
        }
        text += (text.empty() ? "" : ", ") + std::to_string(first);
        if (numbers[i] != first) {
            text += "-" + std::to_string(numbers[i]);
        }
    }
    return text;
}

/** The cuts after which the next start does not find a whole identity. */
struct Gaps {
    std::string eeprom_bytes; /**< bytes written before the supply was lost, 0 to 1024 */
    std::string eeprom_pages; /**< pages left erased by a cut during their write cycle */
    std::string file_bytes;   /**< lengths of the file left by the cut */

    bool operator==(const Gaps&) const = default;
};

void PrintTo(const Gaps& gaps, std::ostream* out)
{
    *out << "EEPROM after bytes {" << gaps.eeprom_bytes << "}, pages {" << gaps.eeprom_pages
         << "}, file of length {" << gaps.file_bytes << "}";
}

const Gaps kNone;

class PowerCut : public SettingsTest {
protected:
    void SetUp() override
    {
        SettingsTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        chip = std::make_shared<PowerCutChip>(board->spi().device("eeprom"));
        board->spi().attach("eeprom", chip);
        eeprom.fill(0xff);
    }

    /**
     * Runs `operation` on the two stores as set in `eeprom` and `backup`, with a cut at every
     * point of its writes, and starts again after each.
     */
    Gaps cuts(const std::function<void()>& operation)
    {
        find_whole_identities(operation);
        Gaps gaps;
        gaps.eeprom_bytes = cuts_after_bytes(operation);
        gaps.eeprom_pages = cuts_in_pages(operation);
        gaps.file_bytes = cuts_in_the_file(operation);
        return gaps;
    }
    Gaps cuts_of_a_start()
    {
        return cuts([this] {
            arm();
            read_data();
        });
    }
    /** The start before the write is not cut. */
    Gaps cuts_of_a_write()
    {
        return cuts([this] {
            read_data();
            arm();
            EEPROM_DEVICE_SETTINGS& record = *(*peer)->getSettings();
            put(record.serialNum, "230099");
            put(record.hostName, "renamed");
            put(record.fpgaVersion, "7");
            record.options = 0x1818;
            record.bootDBConfig = 4;
            (*peer)->writeData(true, true);
        });
    }

    static void put(char (&field)[kSettingsTextSize], const char* text)
    {
        std::memset(field, 0, sizeof field);
        std::strcpy(field, text);
    }
    /** An image with all texts filled, so that a torn image shows. */
    static EEPROM_DEVICE_SETTINGS identity(const char* serial)
    {
        EEPROM_DEVICE_SETTINGS record = factory_settings();
        put(record.serialNum, serial);
        put(record.calibrationDate, serial);
        put(record.hostName, serial);
        put(record.fixIp, serial);
        put(record.dns2, serial);
        put(record.fwVersion, serial);
        put(record.fpgaVersion, serial);
        record.bootDBConfig = static_cast<uint8_t>(serial[5]);
        return record;
    }
    Blob signed_identity(const char* serial, uint32_t generation = 57, uint16_t version = 1)
    {
        const EEPROM_DEVICE_SETTINGS record = identity(serial);
        return peer->build(&record, version, generation);
    }
    static Blob legacy_identity(const char* serial, uint8_t rest = 0xff)
    {
        const EEPROM_DEVICE_SETTINGS record = identity(serial);
        Blob image;
        image.fill(rest);
        std::memcpy(image.data(), &record, sizeof record);
        return image;
    }
    /** Of a newer layout, with fields after the record that this one does not have. */
    Blob newer_identity(const char* serial)
    {
        Blob image = signed_identity(serial, 57, 2);
        std::fill_n(&image[552], 100, uint8_t{0x77});
        const uint32_t crc = peer->crc(image);
        std::memcpy(&image[1020], &crc, sizeof crc);
        return image;
    }

    Blob eeprom;                 // erased
    std::optional<Blob> backup;  // none
    bool file_writable = true;   // otherwise it is a dangling link
    size_t whole_after_cuts = 0; // starts that found the new image

private:
    void lay()
    {
        chip->power_on();
        program(eeprom);
        fs::remove(kFile);
        if (backup) {
            put_file(*backup);
        }
        if (!file_writable) {
            fs::create_directories(kFolder);
            fs::create_symlink(kFile, kFile);
        }
        restart();
        logs.clear();
        board->trace().clear();
    }
    void arm()
    {
        if (cut_at) {
            chip->cut_after(*cut_at, [this] {
                file_at_cut =
                    fs::is_regular_file(fs::symlink_status(kFile)) ? std::optional(file()) : std::nullopt;
            });
        }
    }

    // The whole identities before the operation, and the one it writes.
    void find_whole_identities(const std::function<void()>& operation)
    {
        whole.clear();
        for (const Blob* image : {&eeprom, backup ? &*backup : nullptr}) {
            if (image != nullptr && peer->classify(*image) != INVALID) {
                whole.push_back(record_of(*image));
            }
        }
        lay();
        cut_at.reset();
        operation();
        after_eeprom = cells();
        after_file = file();
        eeprom_written = after_eeprom != bytes_of(eeprom);
        file_written = file_writable && (!backup || after_file != bytes_of(*backup));
        Blob image;
        std::ranges::copy(after_eeprom, image.begin());
        after = record_of(image);
        whole.push_back(after);
    }
    static Bytes record_of(const Blob& image) { return {image.begin(), image.begin() + 552}; }

    // Starts with what the cut left.
    bool comes_back_whole()
    {
        chip->power_on();
        restart();
        read_data();
        const auto* const record = reinterpret_cast<const uint8_t*>(&peer->last_persisted());
        const Bytes found(record, record + 552);
        whole_after_cuts += found == after ? 1U : 0U;

        const Bytes stored = cells();
        Blob image;
        std::ranges::copy(stored, image.begin());
        EXPECT_EQ(peer->classify(image), VERIFIED);
        EXPECT_EQ(record_of(image), found);
        EXPECT_EQ(file(), file_writable ? stored : Bytes());
        logs.clear();
        board->trace().clear();
        return std::ranges::find(whole, found) != whole.end();
    }

    void cut_after(size_t bytes, const std::function<void()>& operation)
    {
        lay();
        cut_at = bytes;
        file_at_cut.reset();
        operation();
        ASSERT_TRUE(chip->dead()) << "cut after byte " << bytes;
        // Undoes what the process did after the cut.
        EXPECT_EQ(file_at_cut, backup ? std::optional(bytes_of(*backup)) : std::nullopt)
            << "the EEPROM comes first";
        if (file_writable) {
            fs::remove(kFile);
        }
        if (file_at_cut) {
            put_file(*file_at_cut, file_at_cut->size());
        }
    }

    std::string cuts_after_bytes(const std::function<void()>& operation)
    {
        std::vector<size_t> wrong;
        for (size_t bytes = 0; eeprom_written && bytes <= TOTAL_BLOB_SIZE; ++bytes) {
            cut_after(bytes, operation);
            Bytes torn = bytes_of(eeprom);
            std::copy_n(after_eeprom.begin(), bytes, torn.begin());
            EXPECT_EQ(cells(), torn) << "after byte " << bytes;
            if (!comes_back_whole()) {
                wrong.push_back(bytes);
            }
        }
        return ranges(wrong);
    }

    std::string cuts_in_pages(const std::function<void()>& operation)
    {
        std::vector<size_t> wrong;
        for (size_t page = 0; eeprom_written && page < TOTAL_BLOB_SIZE / kPage; ++page) {
            cut_after((page + 1) * kPage, operation);
            board->eeprom().program(page * kPage, Bytes(kPage, 0xff));
            if (!comes_back_whole()) {
                wrong.push_back(page);
            }
        }
        return ranges(wrong);
    }

    // The file is written after the EEPROM; a cut leaves it with any length.
    std::string cuts_in_the_file(const std::function<void()>&)
    {
        std::vector<size_t> wrong;
        for (size_t length = 0; file_written && length <= after_file.size(); ++length) {
            chip->power_on();
            board->eeprom().program(0, after_eeprom);
            put_file(after_file, length);
            if (!comes_back_whole()) {
                wrong.push_back(length);
            }
        }
        return ranges(wrong);
    }

    std::shared_ptr<PowerCutChip> chip;
    std::vector<Bytes> whole;
    Bytes after;
    Bytes after_eeprom;
    Bytes after_file;
    bool eeprom_written = false;
    bool file_written = false;
    std::optional<size_t> cut_at;
    std::optional<Bytes> file_at_cut;
};

TEST_F(PowerCut, AChangeIsReadBackAsItWasBeforeOrAfter)
{
    eeprom = signed_identity("230042");
    backup = eeprom;
    EXPECT_EQ(cuts_of_a_write(), kNone);
    EXPECT_GT(whole_after_cuts, 1024u) << "every cut in the file, and those after the last byte";
}

TEST_F(PowerCut, RestoringASignedBackupLosesNothing)
{
    backup = signed_identity("230042");
    EXPECT_EQ(cuts_of_a_start(), kNone);
}

TEST_F(PowerCut, ReplacingAnUnsignedEepromByASignedBackupLosesNothing)
{
    eeprom = legacy_identity("230042");
    backup = signed_identity("230043");
    EXPECT_EQ(cuts_of_a_start(), kNone);
}

TEST_F(PowerCut, ReplacingADamagedEepromBySignedBackupLosesNothing)
{
    eeprom = signed_identity("230042");
    eeprom[300] ^= 1;
    backup = signed_identity("230043");
    EXPECT_EQ(cuts_of_a_start(), kNone);
}

TEST_F(PowerCut, RestoringTheBackupLosesNothing)
{
    eeprom = signed_identity("230042");
    EXPECT_EQ(cuts_of_a_start(), kNone);
}

TEST_F(PowerCut, ReplacingABackupThatDiffersLosesNothing)
{
    eeprom = signed_identity("230042");
    backup = signed_identity("230043");
    EXPECT_EQ(cuts_of_a_start(), kNone);
}

TEST_F(PowerCut, DowngradingWithABackupLosesNothing)
{
    eeprom = newer_identity("230042");
    backup = eeprom;
    EXPECT_EQ(cuts_of_a_start(), kNone);
}

// The old marker stays: a torn image counts as damaged and never as a legacy copy.
TEST_F(PowerCut, ReplacingADamagedEepromByALegacyBackupLosesNothing)
{
    eeprom = signed_identity("230042");
    eeprom[300] ^= 1;
    backup = legacy_identity("230043");
    EXPECT_EQ(cuts_of_a_start(), kNone);
}

TEST_F(PowerCut, ReplacingADamagedEepromByTheFactorySettingsLosesNothing)
{
    eeprom = signed_identity("230042");
    eeprom[300] ^= 1;
    EXPECT_EQ(cuts_of_a_start(), kNone);
}

// The cuts that lose data follow. None is in the file, which is written once the EEPROM is complete.

// A copy without a signature looks like a torn one. While a page of its record is erased in the chip,
// what is left of it still wins over the file, unless the model is gone with page 0.
const char* const kPagesOfARecord = "1-8";

TEST_F(PowerCut, SigningTwoEqualLegacyCopiesLosesNothingButAPageUnderWrite)
{
    eeprom = legacy_identity("230042");
    backup = eeprom;
    EXPECT_EQ(cuts_of_a_start(), (Gaps{"", kPagesOfARecord, ""}));
}

TEST_F(PowerCut, SigningTwoDifferentLegacyCopiesLosesNothingButAPageUnderWrite)
{
    eeprom = legacy_identity("230042");
    backup = legacy_identity("230043");
    EXPECT_EQ(cuts_of_a_start(), (Gaps{"", kPagesOfARecord, ""}));
}

// Between its marker and the end of its CRC the backup is found: whole, with the default serial.
TEST_F(PowerCut, SigningALegacyCopyBesideABackupWithTheDefaultSerialLosesNothingButAPageUnderWrite)
{
    eeprom = legacy_identity("230042");
    backup = legacy_identity("230000");
    EXPECT_EQ(cuts_of_a_start(), (Gaps{"", kPagesOfARecord, ""}));
}

// With its marker complete and its CRC not, the image is damaged and there is no other: 10 bytes of the last
// page, and the pages of the record while they are under write.
TEST_F(PowerCut, ALegacyCopyAloneIsLostBetweenItsMarkerAndTheEndOfItsCrc)
{
    for (const uint8_t rest : {uint8_t{0xff}, uint8_t{0}}) {
        eeprom = legacy_identity("230042", rest);
        EXPECT_EQ(cuts_of_a_start(), (Gaps{"1014-1023", "0-8", ""}));
    }
}

// The signature of a newer copy is invalid from the first changed byte to the last of the CRC.
TEST_F(PowerCut, ANewerCopyAloneIsLostBetweenItsFirstNewFieldAndTheEndOfItsCrc)
{
    eeprom = newer_identity("230042");
    EXPECT_EQ(cuts_of_a_start(), (Gaps{"553-1023", "0-14", ""}));
}

TEST_F(PowerCut, ANewerCopyAloneWithoutNewFieldsIsLostBetweenItsVersionAndTheEndOfItsCrc)
{
    eeprom = signed_identity("230042", 57, 2);
    EXPECT_EQ(cuts_of_a_start(), (Gaps{"1015-1023", "0-14", ""}));
}

// As soon as the model is there, a piece of a record counts as a legacy copy with a real serial, and
// wins over the file: from there to the end of the record.
TEST_F(PowerCut, ALegacyBackupOfABlankEepromIsTornFromItsModelToTheEndOfItsRecord)
{
    backup = legacy_identity("230042");
    EXPECT_EQ(cuts_of_a_start(), (Gaps{"11-551", kPagesOfARecord, ""}));
}

TEST_F(PowerCut, TheFactorySettingsOfANewBoardAreTornFromTheirModelToTheEndOfTheirRecord)
{
    EXPECT_EQ(cuts_of_a_start(), (Gaps{"11-551", kPagesOfARecord, ""}));
}

// From the byte where its serial stops being the default to the last that differs.
TEST_F(PowerCut, ALegacyBackupOfAnEepromWithTheDefaultSerialIsTornFromItsSerialToItsLastDifference)
{
    eeprom = legacy_identity("230000");
    backup = legacy_identity("230042");
    EXPECT_EQ(cuts_of_a_start(), (Gaps{"38-549", kPagesOfARecord, ""}));
}

TEST_F(PowerCut, AChangeWithoutABackupIsLostBetweenItsFirstByteAndTheEndOfItsCrc)
{
    eeprom = signed_identity("230042");
    file_writable = false;
    EXPECT_EQ(cuts_of_a_write(), (Gaps{"2-1023", "0-14", ""}));
}

} // namespace
