// Every state of the EEPROM against every state of the file.

#include <algorithm>
#include <ostream>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include <syslog.h>

#include "settings_bench.h"
#include "support/long_ago.h"

using namespace board_test;
using namespace HaldeElec::Orvan;
using namespace orvan_test;

namespace {

namespace fs = std::filesystem;

constexpr const char* kFileStates[] = {
    "Same",           "SameLong",    "Signed0",         "Signed1",      "Signed2",
    "SignedLong",     "Regenerated", "SameSerial",      "LegacyReal",   "LegacyDefault",
    "Legacy552Bytes", "LegacyLong",  "Signed1010Bytes", "Absent",       "Empty",
    "NineBytes",      "Garbage",     "BadCrc",          "ForeignModel", "Unreadable",
};

// The decision, one letter for each column of kFileStates:
//
//   letter  blob                             EEPROM  file
//   d       EEPROM's rewritten, next gen.    x       x     "downgrading"
//   v       EEPROM's                                 x     "both VERIFIED but differ"
//   f       EEPROM's                                 x
//   =       EEPROM's
//   E e l   EEPROM's rewritten, gen. 1       x       x
//   F       file's rewritten, gen. 1         x       x     "EEPROM had default serial"
//   D       EEPROM's rewritten, gen. 1       x       x     "both have real, DIFFERENT serials"
//   u       file's                           x             "Unexpected"
//   r       file's                           x             "restoring"
//   R       file's rewritten, gen. 1         x       x     "restoring"
//   0       the factory's, generation 1      x       x
struct EepromRow {
    const char* state;
    std::string_view decisions;
};
// clang-format off
constexpr EepromRow kEepromStates[] = {
    //                 Same   Signed   SameSerial  Absent
    //                 ||     |    |   |     |     |
    {"Signed0",       "==" "vvvvv" "ffffff" "fffffff"},
    {"Signed1",       "==" "vvvvv" "ffffff" "fffffff"},
    {"SignedDefault", "==" "vvvvv" "ffffff" "fffffff"},
    {"Signed2",       "dd" "ddddd" "dddddd" "ddddddd"},
    {"LegacyReal",    "ee" "uuuuu" "eDEDDD" "lllllll"},
    {"LegacyErased",  "ee" "uuuuu" "eDEDDD" "lllllll"},
    {"LegacyDefault", "ee" "uuuuu" "FFeFFF" "lllllll"},
    {"BadMarker",     "ee" "uuuuu" "eDEDDD" "lllllll"},
    {"Blank",         "00" "rrrrr" "RRRRRR" "0000000"},
    {"Zeros",         "00" "rrrrr" "RRRRRR" "0000000"},
    {"Garbage",       "00" "rrrrr" "RRRRRR" "0000000"},
    {"BadCrc",        "00" "rrrrr" "RRRRRR" "0000000"},
    {"ForeignModel",  "00" "rrrrr" "RRRRRR" "0000000"},
    {"Dead",          "rr" "rrrrr" "RRRRRR" "0000000"},
};
// clang-format on
constexpr size_t kFileCount = std::size(kFileStates);
static_assert(std::ranges::all_of(kEepromStates,
                                  [](const EepromRow& row) { return row.decisions.size() == kFileCount; }));
static_assert(std::size(kEepromStates) * kFileCount == 280);

const Bytes kTail(500, 't');

bool is_in(char letter, std::string_view letters)
{
    return letters.find(letter) != std::string_view::npos;
}

class Reconciliation : public SettingsTest, public testing::WithParamInterface<std::tuple<size_t, size_t>> {
protected:
    void SetUp() override
    {
        SettingsTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        std::tie(eeprom_state, file_state) =
            std::tuple(kEepromStates[std::get<0>(GetParam())].state, kFileStates[std::get<1>(GetParam())]);
        decision = kEepromStates[std::get<0>(GetParam())].decisions[std::get<1>(GetParam())];
        eeprom = eeprom_image();
        program(eeprom);
        fault->absent(dead());
        lay_file();
    }

    bool dead() const { return eeprom_state == "Dead"; }
    bool unreadable() const { return file_state == "Unreadable"; }

    Blob eeprom_image()
    {
        Blob image = blob("230042");
        if (eeprom_state == "Signed0") {
            return blob("230042", 57, 0);
        }
        if (eeprom_state == "SignedDefault") {
            return blob("230000");
        }
        if (eeprom_state == "Signed2") { // with fields that this layout does not have
            image = blob("230042", 57, 2);
            std::fill_n(&image[552], 40, uint8_t{0x77});
            sign(image);
        }
        if (eeprom_state == "LegacyReal") {
            return legacy("230042");
        }
        if (eeprom_state == "LegacyErased") {
            image = legacy("230042");
            std::fill(image.begin() + 552, image.end(), uint8_t{0xff});
        }
        if (eeprom_state == "LegacyDefault") {
            return legacy("230000");
        }
        if (eeprom_state == "Blank") {
            image.fill(0xff);
        }
        if (eeprom_state == "Zeros") {
            image.fill(0);
        }
        if (eeprom_state == "Garbage") {
            image = garbage();
        }
        if (eeprom_state == "BadCrc") {
            image[40] ^= 1;
        }
        if (eeprom_state == "BadMarker") {
            image[1011] ^= 1;
        }
        if (eeprom_state == "ForeignModel") {
            return foreign();
        }
        return image;
    }

    void lay_file()
    {
        Bytes bytes = bytes_of(file_state.starts_with("Legacy") ? legacy("230043") : blob("230043", 58));
        if (file_state.starts_with("Same")) {
            bytes = bytes_of(eeprom);
        }
        if (file_state == "Signed0") {
            bytes = bytes_of(blob("230043", 58, 0));
        }
        if (file_state == "Signed2") {
            bytes = bytes_of(blob("230043", 58, 2));
        }
        if (file_state == "Regenerated") {
            bytes = bytes_of(blob("230042", 99));
        }
        if (file_state == "SameSerial") {
            EEPROM_DEVICE_SETTINGS record = settings("OVX3651P", "230042");
            std::strcpy(record.hostName, "renamed");
            bytes.assign(TOTAL_BLOB_SIZE, 0);
            std::memcpy(bytes.data(), &record, sizeof record);
        }
        if (file_state == "LegacyDefault") {
            bytes = bytes_of(legacy("230000"));
        }
        if (file_state == "Garbage") {
            bytes = bytes_of(garbage());
        }
        if (file_state == "BadCrc") {
            bytes[1023] ^= 0x80;
        }
        if (file_state == "ForeignModel") {
            bytes = bytes_of(foreign());
        }
        std::copy_n(bytes.begin(), file_image.size(), file_image.begin());

        if (file_state.ends_with("Long")) {
            bytes.insert(bytes.end(), kTail.begin(), kTail.end());
        }
        if (file_state == "Legacy552Bytes") {
            bytes.resize(552);
        }
        if (file_state == "Signed1010Bytes") {
            bytes.resize(1010);
        }
        if (file_state == "NineBytes") {
            bytes.resize(9);
        }
        if (file_state == "Empty") {
            bytes.clear();
        }
        if (unreadable()) {
            fs::create_directories(kFolder);
            fs::create_symlink(kFile, kFile);
        } else if (file_state != "Absent") {
            put_file(bytes, bytes.size());
        }
        before = file();
        if (fs::exists(fs::symlink_status(kFile)) && !unreadable()) {
            fs::last_write_time(kFile, kLongAgo);
        }
    }
    /** Also checks that its bytes are unchanged. */
    bool file_written() const { return fs::exists(kFile) && fs::last_write_time(kFile) != kLongAgo; }

    static Blob garbage()
    {
        Blob image;
        uint32_t state = 20261120;
        for (uint8_t& byte : image) {
            byte = static_cast<uint8_t>((state = state * 1664525 + 1013904223) >> 24);
        }
        return image;
    }
    Blob foreign()
    {
        const EEPROM_DEVICE_SETTINGS record = settings("OVX3651B", "230044");
        return peer->build(&record, 1, 60);
    }
    void sign(Blob& image) const
    {
        const uint32_t crc = peer->crc(image);
        std::memcpy(&image[1020], &crc, sizeof crc);
    }

    Blob chosen()
    {
        const EEPROM_DEVICE_SETTINGS factory = factory_settings();
        if (is_in(decision, "vf=")) {
            return eeprom;
        }
        if (is_in(decision, "ur")) {
            return file_image;
        }
        if (is_in(decision, "FR")) {
            return rebuilt(file_image, 1);
        }
        if (decision == '0') {
            return peer->build(&factory, 1, 1);
        }
        return rebuilt(eeprom, decision == 'd' ? 58 : 1);
    }

    std::vector<LogLine> expected_log()
    {
        const LogLine eeprom_read{LOG_INFO, std::string("[CPersistentData] readEeprom: read 1024 bytes, ") +
                                                (dead() ? "FAILED" : "ok")};
        std::vector<LogLine> log{eeprom_read};
        if (unreadable()) {
            log.push_back({LOG_ERR, "readFSBackup NullEeprom::init() failed"});
        } else if (before.empty()) {
            log.push_back({LOG_INFO, "[CPersistentData] readFSBackup: file empty or missing"});
        } else {
            log.push_back({LOG_INFO, "[CPersistentData] readFSBackup: read " +
                                         std::to_string(std::min<size_t>(before.size(), 1024)) +
                                         " bytes, ok"});
        }
        if (decision == 'd') {
            log.push_back({LOG_WARNING,
                           "[CPersistentData] EEPROM data version (2) is newer than this firmware (1) - "
                           "downgrading, newer fields discarded"});
        }
        if (decision == 'v') {
            log.push_back({LOG_ERR, "[CPersistentData] EEPROM and file both VERIFIED but differ - keeping "
                                    "EEPROM, investigate"});
        }
        if (decision == 'F') {
            log.push_back({LOG_WARNING, "[CPersistentData] EEPROM had default serial, backup file had a real "
                                        "serial - using backup file"});
        }
        if (decision == 'D') {
            log.push_back({LOG_ERR, "[CPersistentData] EEPROM and backup file both have real, DIFFERENT "
                                    "serials - keeping EEPROM (230042), backup had (230043) - "});
        }
        if (decision == 'u') {
            log.push_back({LOG_ERR, "[CPersistentData] Unexpected: EEPROM legacy but file VERIFIED - using "
                                    "file, investigate"});
        }
        if (is_in(decision, "rR")) {
            log.push_back({LOG_WARNING, "[CPersistentData] EEPROM invalid, restoring from backup file"});
        }
        if (repairs_eeprom()) {
            log.push_back(eeprom_read);
            if (dead()) {
                log.push_back({LOG_ERR, "[CPersistentData] readData: EEPROM repair write/verify FAILED"});
            }
        }
        if (repairs_file() && unreadable()) {
            log.push_back({LOG_ERR, "writeFSBackup NullEeprom::init() failed"});
            log.push_back({LOG_ERR, "[CPersistentData] readData: backup file repair write FAILED"});
        }
        log.push_back({LOG_INFO, "CPersistentData::readData"});
        log.push_back({LOG_INFO, "OVX3651P"});
        return log;
    }

    bool repairs_eeprom() const { return !is_in(decision, "vf="); }
    bool repairs_file() const { return !is_in(decision, "=ur"); }

    std::string_view eeprom_state;
    std::string_view file_state;
    char decision = 0;
    Blob eeprom = {};
    Blob file_image = {}; // the first 1024 bytes, even of a file cut after its record
    Bytes before;
};

TEST_P(Reconciliation, FollowsTheTable)
{
    const Blob expected = chosen();
    const sDevArch_t* const arch = read_data();

    EXPECT_EQ(arch, &g_portableModelsTable[1]);
    EXPECT_EQ(std::memcmp((*peer)->getSettings(), expected.data(), sizeof(EEPROM_DEVICE_SETTINGS)), 0);
    EXPECT_EQ(std::memcmp(&peer->last_persisted(), expected.data(), sizeof(EEPROM_DEVICE_SETTINGS)), 0);
    EXPECT_EQ(peer->version(), expected[1014]);
    EXPECT_EQ(peer->generation(), expected[1016]);

    const bool eeprom_written = repairs_eeprom() && !dead();
    EXPECT_EQ(cells(), bytes_of(eeprom_written ? expected : eeprom));
    EXPECT_EQ(board->eeprom().write_cycles(), eeprom_written ? 16u : 0u);
    EXPECT_EQ(cells(1024, 0x2000), Bytes(0x2000 - 1024, 0xff));

    Bytes after = before;
    if (repairs_file() && !unreadable()) {
        after.resize(std::max<size_t>(after.size(), 1024));
        std::ranges::copy(expected, after.begin());
    }
    EXPECT_EQ(file(), after);
    if (!unreadable()) {
        EXPECT_EQ(file_written(), repairs_file());
    }

    EXPECT_EQ(logs.lines(), expected_log());
    EXPECT_EQ(eeprom_test(), dead() ? BIT_FAIL : BIT_PASS) << "a repair does not change it";
    EXPECT_EQ(channel(), 2u);
}

TEST_P(Reconciliation, ASecondStartFindsNothingToDo)
{
    if (dead() || unreadable()) {
        return; // nothing is repaired
    }
    read_data();
    if (peer->version() == 2) { // a newer copy was restored unchanged; the next start downgrades it
        restart();
        read_data();
    }
    const Bytes stored = cells();
    const Bytes backup = file();
    const size_t cycles = board->eeprom().write_cycles();
    EXPECT_TRUE(std::equal(stored.begin(), stored.end(), backup.begin()));
    Blob image;
    std::ranges::copy(stored, image.begin());
    EXPECT_EQ(peer->classify(image), VERIFIED);

    restart();
    logs.clear();
    read_data();
    EXPECT_EQ(cells(), stored);
    EXPECT_EQ(file(), backup);
    EXPECT_EQ(board->eeprom().write_cycles(), cycles);
    EXPECT_EQ(logs.lines(),
              (std::vector<LogLine>{{LOG_INFO, "[CPersistentData] readEeprom: read 1024 bytes, ok"},
                                    {LOG_INFO, "[CPersistentData] readFSBackup: read 1024 bytes, ok"},
                                    {LOG_INFO, "CPersistentData::readData"},
                                    {LOG_INFO, "OVX3651P"}}));
}

INSTANTIATE_TEST_SUITE_P(EveryState, Reconciliation,
                         testing::Combine(testing::Range<size_t>(0, std::size(kEepromStates)),
                                          testing::Range<size_t>(0, kFileCount)),
                         [](const auto& state) {
                             return std::string(kEepromStates[std::get<0>(state.param)].state) + "_" +
                                    kFileStates[std::get<1>(state.param)];
                         });

} // namespace
