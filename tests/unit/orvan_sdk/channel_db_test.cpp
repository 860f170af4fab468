#include <algorithm>
#include <cerrno>
#include <fstream>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "setup_bench.h"
#include "support/known_leak.h"

using namespace orvan_test;

namespace {

class ChannelDb : public RecordsBench {};

// ---- load_database

class LoadDatabase : protected WithInstrumentFiles, public FrontEndBench {
protected:
    LoadDatabase()
    {
        files.write_factory_setup(R"({"ANALOGOUTPUT": {"Frequency": 1234567}, "SYSTEM": {"Model": "M"}})");
        files.stand_in_for_sudo("exit 1");
        logs.clear();
    }
};

TEST_F(LoadDatabase, WithoutChannelsNothingIsCreated)
{
    EXPECT_EQ(orvanx->load_database(0), -4);
    EXPECT_EQ(files.object_size(), -1);
    EXPECT_EQ(orvanx->get_ElemByTag(ODT_FREQ), nullptr);
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(LoadDatabase, HoldsOneRecordForEachInstalledChannel)
{
    for (int channels = 1; channels <= kMaxChannels; ++channels) {
        orvanx->setNumberofChannels(channels);
        ASSERT_EQ(orvanx->load_database(0), 0);
        EXPECT_EQ(files.object_size(), channels * 1816);
        delete orvanx;
        SCPI_Deinit(&scpi_context);
        orvanx = Scpi_Orvanx::getInstance();
        speak_as(client);
    }
}

TEST_F(LoadDatabase, FillsEveryChannelFromTheFactorySetup)
{
    orvanx->setNumberofChannels(3);
    ASSERT_EQ(orvanx->load_database(0), 0);
    for (int channel = 1; channel <= 3; ++channel) {
        const auto& record = *reinterpret_cast<ORVAN_CONFIG*>(orvanx->get_channelDB(channel));
        EXPECT_EQ(record.ANALOGOUTPUT.Frequency, 1234567.0);
        EXPECT_STREQ(record.SYSTEM.Model, "M");
    }
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(LoadDatabase, AnotherProcessSeesTheRecords)
{
    orvanx->setNumberofChannels(2);
    ASSERT_EQ(orvanx->load_database(0), 0);
    char value[] = "77";
    ASSERT_EQ(orvanx->update_db(2, ODT_FREQ, value, sizeof value), 0);
    const int fd = ::shm_open(g_shmemName, O_RDONLY, 0);
    ASSERT_GE(fd, 0);
    double frequency = 0;
    EXPECT_EQ(pread(fd, &frequency, sizeof frequency, 1816 + 200), 8);
    EXPECT_EQ(frequency, 77.0);
    ::close(fd);
}

TEST_F(LoadDatabase, TheObjectsModeIsLimitedOnlyByTheUmask)
{
    for (const mode_t mask : {0u, 027u}) {
        ASSERT_TRUE(shm_unlink(g_shmemName) == 0 || errno == ENOENT);
        const mode_t before = ::umask(mask);
        orvanx->setNumberofChannels(1);
        EXPECT_EQ(orvanx->load_database(0), 0);
        ::umask(before);
        struct stat info = {};
        ASSERT_EQ(stat(("/dev/shm" + files.object()).c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777, 0666 & ~mask);
        delete orvanx;
        SCPI_Deinit(&scpi_context);
        orvanx = Scpi_Orvanx::getInstance();
        speak_as(client);
    }
}

TEST_F(LoadDatabase, ALeftOverObjectIsReusedAndCutToSize)
{
    const int fd = ::shm_open(g_shmemName, O_RDWR | O_CREAT, 0600);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(ftruncate(fd, 4 * 1816), 0);
    const double old_power = 9.5;
    ASSERT_EQ(pwrite(fd, &old_power, sizeof old_power, 232), 8);
    orvanx->setNumberofChannels(1);
    ASSERT_EQ(orvanx->load_database(0), 0);
    EXPECT_EQ(files.object_size(), 1816);
    const auto& record = *reinterpret_cast<ORVAN_CONFIG*>(orvanx->get_channelDB(1));
    EXPECT_EQ(record.ANALOGOUTPUT.Frequency, 1234567.0); // in the setup
    EXPECT_EQ(record.ANALOGOUTPUT.Power, 9.5);           // not in it
    ::close(fd);
}

TEST_F(LoadDatabase, ASetupThatCannotBeReadLeavesTheRecordsMapped)
{
    files.write_factory_setup("no JSON");
    orvanx->setNumberofChannels(2);
    EXPECT_EQ(orvanx->load_database(0), -1);
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_ERR, "Recall failed: Mod 1, Index 0"},
                                                  {LOG_ERR, "Recall failed: Mod 2, Index 0"},
                                                  {LOG_ERR, "Failed to load default database on boot"}}));
    EXPECT_EQ(files.object_size(), 2 * 1816);
    char value[] = "5";
    EXPECT_EQ(orvanx->update_db(2, ODT_PWR, value, sizeof value), 0);
}

TEST_F(LoadDatabase, RecallsTheBootSetupAndSendsItToLiveModules)
{
    settings_in_memory().bootDBConfig = 3;
    for (int channel : {1, 2}) {
        files.write_preset(channel, 3, R"({"ANALOGOUTPUT": {"Frequency": 3}, "SYSTEM": {"Battery": 3}})");
    }
    orvanx->setNumberofChannels(2);
    orvanx->m_isLive[1] = true;
    EXPECT_EQ(orvanx->load_database(3), 0);
    for (int channel : {1, 2}) {
        const auto& record = *reinterpret_cast<ORVAN_CONFIG*>(orvanx->get_channelDB(channel));
        EXPECT_EQ(record.ANALOGOUTPUT.Frequency, 3.0);
        EXPECT_EQ(record.CHANNEL.State, channel == 2 ? On : Off);
    }
    const std::vector<std::string> sent = module.requests();
    EXPECT_EQ(std::count(sent.begin(), sent.end(), ":FREQuency 3\r\n"), 1);
    EXPECT_EQ(orvanx->get_bootDBConfig(), 3);
}

TEST_F(LoadDatabase, ABootSetupWithAMissingFileFallsBackToTheFactorySetup)
{
    settings_in_memory().bootDBConfig = 3;
    files.write_preset(1, 3, R"({"ANALOGOUTPUT": {"Frequency": 3}})");
    orvanx->setNumberofChannels(2);
    EXPECT_EQ(orvanx->load_database(3), 0);
    for (int channel : {1, 2}) {
        const auto& record = *reinterpret_cast<ORVAN_CONFIG*>(orvanx->get_channelDB(channel));
        EXPECT_EQ(record.ANALOGOUTPUT.Frequency, 1234567.0);
    }
    EXPECT_EQ(orvanx->get_bootDBConfig(), 0) << "in memory; the settings' bus is never accessed";
    EXPECT_EQ(logs.lines(),
              (std::vector<LogLine>{{LOG_WARNING, "Validation Failed: Config 3 missing for Module 2"}}));
}

TEST_F(LoadDatabase, AnImpossibleBootSetupFallsBackWithoutALogLine)
{
    settings_in_memory().bootDBConfig = 9;
    orvanx->setNumberofChannels(1);
    EXPECT_EQ(orvanx->load_database(9), 0);
    EXPECT_EQ(orvanx->get_bootDBConfig(), 0);
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(LoadDatabase, WithoutTheFactoryFileTheRecordsAreEmpty)
{
    std::filesystem::remove(files.halde() / "json/ch0.json");
    orvanx->setNumberofChannels(1);
    EXPECT_EQ(orvanx->load_database(0), -1);
    EXPECT_EQ(logs.lines(),
              (std::vector<LogLine>{{LOG_WARNING, "Validation Failed: Config 0 missing for Module 1"},
                                    {LOG_ERR, "Recall failed: Mod 1, Index 0"},
                                    {LOG_ERR, "Failed to load default database on boot"}}));
    EXPECT_EQ(files.object_size(), 1816);
}

TEST_F(LoadDatabase, ItsDescriptorIsClosedOnlyOnSuccess)
{
    orvanx->setNumberofChannels(1);
    const size_t before = open_descriptors();
    ASSERT_EQ(orvanx->load_database(0), 0);
    EXPECT_EQ(open_descriptors(), before);
    delete orvanx;
    SCPI_Deinit(&scpi_context);
    orvanx = Scpi_Orvanx::getInstance();
    speak_as(client);
    orvanx->setNumberofChannels(1);
    files.write_factory_setup("");
    EXPECT_EQ(orvanx->load_database(0), -1);
    EXPECT_EQ(open_descriptors(), before + 1);
}

/** Whether the process maps the object, even after its name is removed. */
bool is_mapped()
{
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        if (line.find("/orvanData") != std::string::npos) {
            return true;
        }
    }
    return false;
}

TEST_F(LoadDatabase, TheDestructorUnmapsAndRemovesTheObject)
{
    orvanx->setNumberofChannels(4);
    ASSERT_EQ(orvanx->load_database(0), 0);
    ASSERT_TRUE(is_mapped());
    delete orvanx;
    SCPI_Deinit(&scpi_context);
    EXPECT_EQ(files.object_size(), -1);
    EXPECT_FALSE(is_mapped());
    orvanx = Scpi_Orvanx::getInstance();
    speak_as(client);
}

// The object stays: the data library removes it only with a mapping.
class LoadDatabaseFault : public testing::Test {
protected:
    LoadDatabaseFault()
    {
        files.write_factory_setup("{}");
        orvanx->setNumberofChannels(2);
        orvanx->setSelectedChannel(1);
        logs.clear();
    }

    LogCapture logs;
    InstrumentFiles files;
    Scpi_Orvanx* const orvanx = Scpi_Orvanx::getInstance();
    const KnownLeak data_that_goes_only_with_the_records;
};

TEST_F(LoadDatabaseFault, InOpeningIsLoggedWithItsReason)
{
    files.set_fault(InstrumentFiles::Fault::kOpen);
    EXPECT_EQ(orvanx->load_database(0), -1);
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{
                                {LOG_ERR, "Failed to open shared memory: Permission denied (errno=13)\n"}}));
    EXPECT_EQ(orvanx->get_channelDB(), nullptr);
}

TEST_F(LoadDatabaseFault, InAllocatingRemovesTheObject)
{
    files.set_fault(InstrumentFiles::Fault::kAllocate);
    EXPECT_EQ(orvanx->load_database(0), -1);
    EXPECT_EQ(logs.lines(),
              (std::vector<LogLine>{{LOG_ERR, "Failed to allocate shared memory for Orvan DB"}}));
    EXPECT_EQ(files.object_size(), -1);
    EXPECT_EQ(orvanx->get_channelDB(), nullptr);
}

TEST_F(LoadDatabaseFault, InMappingRemovesTheObjectAndKeepsTheFailureValue)
{
    files.set_fault(InstrumentFiles::Fault::kMap);
    EXPECT_EQ(orvanx->load_database(0), -1);
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_ERR, "Failed to map shared memory for Orvan DB"}}));
    EXPECT_EQ(files.object_size(), -1);
    EXPECT_EQ(static_cast<void*>(orvanx->get_channelDB()), MAP_FAILED);
    delete orvanx;
    SCPI_Deinit(&scpi_context);
}

// ---- look-up

TEST(ChannelDbBeforeLoad, ThereAreNoElementsAndNoRecords)
{
    LogCapture logs;
    Scpi_Orvanx* const orvanx = Scpi_Orvanx::getInstance();
    orvanx->setSelectedChannel(1);
    logs.clear();
    for (int tag : {ODT_NO_TAG, ODT_CHAN_ENA, ODT_BATT_LOW_ALARM}) {
        EXPECT_EQ(orvanx->get_ElemByTag(tag), nullptr);
    }
    EXPECT_EQ(orvanx->get_channelDB(), nullptr);
    EXPECT_EQ(orvanx->get_channelDB(1), nullptr);
    char value[] = "1";
    EXPECT_EQ(orvanx->update_db(1, ODT_FREQ, value, sizeof value), -1);
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(ChannelDb, ATagSelectsItsRowOfTheTable)
{
    EXPECT_EQ(orvanx->get_ElemByTag(ODT_NO_TAG), nullptr);
    EXPECT_EQ(orvanx->get_ElemByTag(-7), nullptr);
    for (int tag = 0; tag <= ODT_BATT_LOW_ALARM; ++tag) {
        EXPECT_EQ(orvanx->get_ElemByTag(tag), &OrvanData::orvanMap[tag]);
    }
    EXPECT_EQ(orvanx->get_ElemByTag(144)->pos, UINT32_MAX); // no upper bound: the end row
}

TEST_F(ChannelDb, ChannelsAreContiguous)
{
    for (int channel = 2; channel <= 4; ++channel) {
        EXPECT_EQ(orvanx->get_channelDB(channel), orvanx->get_channelDB(1) + (channel - 1) * 1816);
    }
}

TEST_F(ChannelDb, OnlyZeroAndNumbersAboveFourHaveNoRecord)
{
    EXPECT_EQ(orvanx->get_channelDB(0), nullptr);
    EXPECT_EQ(orvanx->get_channelDB(5), nullptr);
    EXPECT_EQ(orvanx->get_channelDB(-1), orvanx->get_channelDB(1) - 2 * 1816);
}

class OneChannelDb : public RecordsBench {
protected:
    OneChannelDb() : RecordsBench(1) {}
};

TEST_F(OneChannelDb, TheBoundIsFourAndNotTheInstalledChannels)
{
    EXPECT_EQ(orvanx->get_channelDB(4), orvanx->get_channelDB(1) + 3 * 1816);
}

TEST_F(ChannelDb, WithoutANumberTheSelectedChannelIsUsed)
{
    for (int channel = 1; channel <= 4; ++channel) {
        orvanx->setSelectedChannel(channel);
        EXPECT_EQ(orvanx->get_channelDB(), orvanx->get_channelDB(channel));
    }
    for (int none : {0, -1}) {
        orvanx->setSelectedChannel(none);
        EXPECT_EQ(orvanx->get_channelDB(), nullptr);
    }
}

// ---- update_db

TEST_F(ChannelDb, UpdateOfAChannelWritesOnlyThatChannel)
{
    char value[] = "2500000000";
    EXPECT_EQ(orvanx->update_db(3, ODT_FREQ, value, sizeof value), 0);
    EXPECT_EQ(record(3).ANALOGOUTPUT.Frequency, 2.5e9);
    for (int other : {1, 2, 4}) {
        EXPECT_EQ(record(other).ANALOGOUTPUT.Frequency, 1e9);
    }
}

TEST_F(ChannelDb, UpdateOfAChannelRefusesANullTextAndSizeZero)
{
    char value[] = "x";
    EXPECT_EQ(orvanx->update_db(1, ODT_INF_MODEL, value, 0), -1);
    EXPECT_EQ(orvanx->update_db(1, ODT_INF_MODEL, nullptr, 5), -1);
    EXPECT_EQ(orvanx->update_db(1, ODT_INF_MODEL, nullptr, 0), -1);
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_ERR, "invalid input: buff = ok, size = 0"},
                                                  {LOG_ERR, "invalid input: buff = null, size = 5"},
                                                  {LOG_ERR, "invalid input: buff = null, size = 0"}}));
}

TEST_F(ChannelDb, UpdateOfAChannelWithoutARecordFailsSilently)
{
    char value[] = "1";
    EXPECT_EQ(orvanx->update_db(0, ODT_FREQ, value, sizeof value), -1);
    EXPECT_EQ(orvanx->update_db(5, ODT_FREQ, value, sizeof value), -1);
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(ChannelDb, UpdateOfAChannelLeavesTheCallersTextUnchanged)
{
    char value[] = "1.2.3";
    EXPECT_EQ(orvanx->update_db(1, ODT_FIRM, value, 4), 0);
    EXPECT_STREQ(value, "1.2.3");
    EXPECT_STREQ(record(1).SYSTEM.Firmware, "1.2.3");
}

TEST_F(ChannelDb, UpdateOfARecordTerminatesTheCallersText)
{
    char value[] = "1.2.3";
    EXPECT_EQ(orvanx->update_db(orvanx->get_channelDB(2), ODT_FIRM, value, 4), 0);
    EXPECT_STREQ(value, "1.2");
    EXPECT_STREQ(record(2).SYSTEM.Firmware, "1.2");
}

TEST_F(ChannelDb, UpdateOfARecordRefusesEachNullAndSizeZero)
{
    char value[] = "x";
    uint8_t* const base = orvanx->get_channelDB(1);
    uint8_t* const none = nullptr;
    EXPECT_EQ(orvanx->update_db(none, ODT_FIRM, value, 2), -1);
    EXPECT_EQ(orvanx->update_db(base, ODT_FIRM, nullptr, 2), -1);
    EXPECT_EQ(orvanx->update_db(base, ODT_FIRM, value, 0), -1);
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_ERR, "invalid input: base=null, buff = ok, size = 2"},
                                                  {LOG_ERR, "invalid input: base=ok, buff = null, size = 2"},
                                                  {LOG_ERR, "invalid input: base=ok, buff = ok, size = 0"}}));
}

TEST_F(ChannelDb, UpdateWithoutATagSucceedsAndWritesNothing)
{
    const ORVAN_CONFIG before = record(1);
    char value[] = "1";
    EXPECT_EQ(orvanx->update_db(1, ODT_NO_TAG, value, sizeof value), 0);
    EXPECT_EQ(orvanx->update_db(orvanx->get_channelDB(1), ODT_NO_TAG, value, sizeof value), 0);
    EXPECT_EQ(std::memcmp(&before, &record(1), sizeof before), 0);
}

TEST_F(ChannelDb, AGroupOfElementsGetsOneValue)
{
    int tags[] = {ODT_FREQ_MAX, ODT_LIST_FREQ_MAX, ODT_FRS_START_MAX, ODT_FRS_STOP_MAX};
    char value[32] = "6000000000";
    orvanx->updateDBFeature(orvanx->get_channelDB(1), tags, 4, value, sizeof value);
    for (int tag : tags) {
        EXPECT_EQ(text(1, tag), "6000000000");
    }
    EXPECT_EQ(text(2, ODT_FREQ_MAX), "0");
}

TEST_F(ChannelDb, OnlyTheCountedElementsOfAGroupAreWritten)
{
    int tags[] = {ODT_FREQ_MAX, ODT_LIST_FREQ_MAX};
    char value[32] = "6";
    orvanx->updateDBFeature(orvanx->get_channelDB(1), tags, 1, value, sizeof value);
    EXPECT_EQ(text(1, ODT_FREQ_MAX), "6");
    EXPECT_EQ(text(1, ODT_LIST_FREQ_MAX), "0");
}

TEST_F(ChannelDb, AGroupWithAnythingMissingIsSilentlyIgnored)
{
    int tags[] = {ODT_FREQ};
    char value[4] = "9";
    uint8_t* const base = orvanx->get_channelDB(1);
    orvanx->updateDBFeature(nullptr, tags, 1, value, sizeof value);
    orvanx->updateDBFeature(base, nullptr, 1, value, sizeof value);
    orvanx->updateDBFeature(base, tags, 0, value, sizeof value);
    orvanx->updateDBFeature(base, tags, 1, nullptr, sizeof value);
    orvanx->updateDBFeature(base, tags, 1, value, 0);
    EXPECT_EQ(text(1, ODT_FREQ), "1000000000");
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(ChannelDb, ThreadsMayWriteAndReadOneElement)
{
    const auto write = [&](std::string value) {
        for (int i = 0; i < 2000; ++i) {
            orvanx->update_db(1, ODT_FREQ, value.data(), value.size() + 1);
        }
    };
    std::thread first(write, "1000000000");
    std::thread second(write, "2000000000");
    for (int i = 0; i < 2000; ++i) {
        text(1, ODT_FREQ);
    }
    first.join();
    second.join();
    const std::string last = text(1, ODT_FREQ);
    EXPECT_TRUE(last == "1000000000" || last == "2000000000") << last;
}

TEST_F(ChannelDb, WhatIsRenderedIsReadBackTheSame)
{
    for (int tag = 0; tag <= ODT_BATT_LOW_ALARM; ++tag) {
        const char* const value = OrvanData::orvanMap[tag].type == TYPE_BOOL     ? "ON"
                                  : OrvanData::orvanMap[tag].type == TYPE_STRING ? "a word"
                                                                                 : "42";
        std::string given = value;
        ASSERT_EQ(orvanx->update_db(1, tag, given.data(), given.size() + 1), 0);
        std::string shown = text(1, tag);
        EXPECT_EQ(shown, value) << tag;
        ASSERT_EQ(orvanx->update_db(2, tag, shown.data(), shown.size() + 1), 0);
    }
    EXPECT_EQ(std::memcmp(&record(1), &record(2), offsetof(ORVAN_CONFIG, SYSTEM)), 0);
}

} // namespace
