#include <algorithm>
#include <cerrno>
#include <ostream>

#include <linux/capability.h>
#include <sys/syscall.h>
#include <syslog.h>

#include "settings_bench.h"

using namespace board_test;
using namespace HaldeElec::Orvan;
using namespace orvan_test;

namespace {

namespace fs = std::filesystem;

/** Refuses a single message, given by number, and counts them all. */
struct RefusesOne : sim_board::FaultySpiDevice {
    using FaultySpiDevice::FaultySpiDevice;
    int refuse_message() override { return messages++ == refused ? EIO : FaultySpiDevice::refuse_message(); }
    size_t refused = SIZE_MAX;
    size_t messages = 0;
};

/** While it lives, file permissions apply to root as well. */
class PermissionsCount {
public:
    PermissionsCount()
    {
        ::syscall(SYS_capget, &m_header, m_before);
        __user_cap_data_struct without[2] = {m_before[0], m_before[1]};
        without[0].effective &= ~(1U << CAP_DAC_OVERRIDE | 1U << CAP_DAC_READ_SEARCH);
        EXPECT_EQ(syscall(SYS_capset, &m_header, without), 0);
    }
    ~PermissionsCount() { ::syscall(SYS_capset, &m_header, m_before); }
    PermissionsCount(const PermissionsCount&) = delete;
    PermissionsCount& operator=(const PermissionsCount&) = delete;

private:
    __user_cap_header_struct m_header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct m_before[2]{};
};

class SettingsFaults : public SettingsTest {
protected:
    static constexpr size_t kPage = 64;
    static constexpr size_t kPages = TOTAL_BLOB_SIZE / kPage;

    void SetUp() override
    {
        SettingsTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        one = std::make_shared<RefusesOne>(board->spi().device("eeprom"));
        board->spi().attach("eeprom", one);
    }

    /** An idle chip that holds `image` and refuses the message of that number. */
    void begin(const Blob& image, size_t refused)
    {
        one->power_on();
        program(image);
        one->messages = 0;
        one->refused = refused;
        logs.clear();
        board->trace().clear();
    }
    /** The caller's data is unchanged, and the refusal is logged once. */
    void expect_only_the_refusal_shows()
    {
        EXPECT_EQ(channel(), 2u);
        EXPECT_EQ(board->gpio().level(11), 1) << "the multiplexer is released";
        EXPECT_EQ(logs.count(LOG_INFO, "sendDataBySPI - error : -1"), 1u);
        EXPECT_EQ(cells(TOTAL_BLOB_SIZE, 0x2000), Bytes(0x2000 - TOTAL_BLOB_SIZE, 0xff));
    }
    /** Serial number of the settings a start uses. */
    std::string chosen_serial()
    {
        read_data();
        return (*peer)->getSettings()->serialNum;
    }
    /** Opcodes of the messages sent. */
    std::vector<std::string> opcodes()
    {
        const std::string prefix = "spi eeprom: ";
        std::vector<std::string> codes;
        for (const std::string& line : board->trace().lines_with({prefix})) {
            codes.push_back(line.substr(prefix.size(), 2));
        }
        return codes;
    }

    std::shared_ptr<RefusesOne> one;
};

TEST_F(SettingsFaults, AReadWhosePollIsRefusedPollsAgain)
{
    begin(blob("230042"), 0);
    Blob image = {};
    EXPECT_TRUE(peer->read_eeprom(image));
    EXPECT_EQ(image, blob("230042"));
    EXPECT_EQ(opcodes(), (std::vector<std::string>{"05", "03"}));
    EXPECT_EQ(logs.lines(),
              (std::vector<LogLine>{{LOG_INFO, "sendDataBySPI - error : -1"},
                                    {LOG_INFO, "[CPersistentData] readEeprom: read 1024 bytes, ok"}}));
    expect_only_the_refusal_shows();
}

TEST_F(SettingsFaults, AReadWhoseMessageIsRefusedFailsAndKeepsTheBuffer)
{
    begin(blob("230042"), 1);
    Blob image;
    image.fill(0xa5);
    const Blob before = image;
    EXPECT_FALSE(peer->read_eeprom(image));
    EXPECT_EQ(image, before);
    EXPECT_EQ(one->messages, 2u) << "it is not tried again";
    EXPECT_EQ(logs.lines(),
              (std::vector<LogLine>{{LOG_INFO, "sendDataBySPI - error : -1"},
                                    {LOG_INFO, "[CPersistentData] readEeprom: read 1024 bytes, FAILED"}}));
    EXPECT_EQ(cells(0, TOTAL_BLOB_SIZE), bytes_of(blob("230042")));
    expect_only_the_refusal_shows();
}

TEST_F(SettingsFaults, AnyRefusedMessageOfAWriteCostsAtMostItsPage)
{
    const Blob before = blob("230000", 1);
    Blob after;
    for (size_t i = 0; i < after.size(); ++i) {
        after[i] = static_cast<uint8_t>(before[i] ^ 0xff); // every byte changed
    }

    begin(before, SIZE_MAX);
    ASSERT_TRUE(peer->write_eeprom(after));
    const std::vector<std::string> sent = opcodes();
    ASSERT_EQ(sent.size(), 1 + 2 * kPages + 6 * (kPages - 1)) << "polls, write enables and page writes";

    size_t page = 0;
    for (size_t refused = 0; refused < sent.size(); ++refused) {
        SCOPED_TRACE("message " + std::to_string(refused) + ", opcode " + sent[refused]);
        begin(before, refused);
        EXPECT_TRUE(peer->write_eeprom(after)) << "a write is not verified";

        Bytes expected = bytes_of(after);
        if (sent[refused] != "05") { // a poll is repeated
            std::copy_n(before.begin() + static_cast<std::ptrdiff_t>(page * kPage), kPage,
                        expected.begin() + static_cast<std::ptrdiff_t>(page * kPage));
        }
        ASSERT_EQ(cells(0, TOTAL_BLOB_SIZE), expected);
        EXPECT_EQ(logs.lines().size(), 1u);
        expect_only_the_refusal_shows();
        page += sent[refused] == "02" ? 1 : 0;
    }
    EXPECT_EQ(page, kPages);
    EXPECT_EQ(err.text(), "");
}

TEST_F(SettingsFaults, ADeadBusRefusesTheReadAndIsNotNoticedByTheWrite)
{
    const Blob image = blob("230042");
    program(image);
    fault->refuse_after(0);
    Blob read = {};
    EXPECT_FALSE(peer->read_eeprom(read));
    EXPECT_EQ(read, Blob{});
    EXPECT_TRUE(peer->write_eeprom(blob("230043")));
    EXPECT_EQ(cells(0, TOTAL_BLOB_SIZE), bytes_of(image));
    EXPECT_EQ(channel(), 2u);
    EXPECT_EQ(logs.count(LOG_INFO, "sendDataBySPI - error : -1"), 100u + 100u * kPages)
        << "each page waits out its polls";
}

TEST_F(SettingsFaults, AFolderInPlaceOfTheBackupFileIsNoBackup)
{
    fs::create_directories(kFile);
    Blob image;
    image.fill(0xa5);
    const Blob before = image;
    EXPECT_FALSE(peer->read_file(image));
    EXPECT_EQ(image, before);
    EXPECT_FALSE(peer->write_file(blob("230042")));
    EXPECT_TRUE(fs::is_directory(kFile));
    EXPECT_TRUE(fs::is_empty(kFile));
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_ERR, "readFSBackup NullEeprom::init() failed"},
                                                  {LOG_ERR, "writeFSBackup NullEeprom::init() failed"}}));
    EXPECT_TRUE(err.text().starts_with("NullEeprom ")) << err.text();

    program(blob("230042"));
    EXPECT_EQ(chosen_serial(), "230042") << "the EEPROM alone serves";
}

TEST_F(SettingsFaults, AnUnreadableBackupFileIsNoBackup)
{
    put_file(blob("230043"));
    fs::permissions(kFile, fs::perms::none);
    {
        const PermissionsCount permissions;
        Blob image = {};
        EXPECT_FALSE(peer->read_file(image));
        EXPECT_FALSE(peer->write_file(blob("230044")));
        EXPECT_EQ(chosen_serial(), "230000") << "the factory's";
    }
    const std::string line = "NullEeprom fopen: Permission denied\n";
    EXPECT_EQ(err.text(), line + line + line + line);
    EXPECT_EQ(logs.count(LOG_ERR, "readFSBackup NullEeprom::init() failed"), 2u);
    EXPECT_EQ(logs.count(LOG_ERR, "writeFSBackup NullEeprom::init() failed"), 2u);
    fs::permissions(kFile, fs::perms::owner_all);
    EXPECT_EQ(file(), bytes_of(blob("230043")));
}

TEST_F(SettingsFaults, AReadOnlyBackupFileIsReadAndKept)
{
    put_file(blob("230043"));
    fs::permissions(kFile, fs::perms::owner_read);
    const PermissionsCount permissions;
    EXPECT_EQ(chosen_serial(), "230043");
    EXPECT_FALSE(peer->write_file(blob("230044")));
    EXPECT_EQ(err.text(), "NullEeprom fopen for write: Permission denied\n");
    EXPECT_EQ(file(), bytes_of(blob("230043")));
}

TEST_F(SettingsFaults, OfABackupFileOfOneGigabyteTheFirst1024BytesCount)
{
    put_file(blob("230043"));
    fs::resize_file(kFile, uintmax_t{1} << 30);
    Blob image = {};
    EXPECT_TRUE(peer->read_file(image));
    EXPECT_EQ(image, blob("230043"));
    EXPECT_EQ(logs.lines(),
              (std::vector<LogLine>{{LOG_INFO, "[CPersistentData] readFSBackup: read 1024 bytes, ok"}}));
}

TEST_F(SettingsFaults, AFileOfEveryShortLengthIsLegacyOnceItsModelIsComplete)
{
    const Blob image = blob("230043");
    for (size_t size = 1; size < TOTAL_BLOB_SIZE; ++size) {
        put_file(image, size);
        Blob read = {};
        ASSERT_TRUE(peer->read_file(read)) << size;
        // With its marker and only part of its CRC it is a damaged blob.
        const DataState expected = size < 10 || size >= 1014 ? INVALID : LEGACY_VALID;
        ASSERT_EQ(peer->classify(read), expected) << size;
    }
}

} // namespace
