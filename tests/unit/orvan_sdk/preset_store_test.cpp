// Setups as files: storing, clearing and validation.
#include <climits>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <syslog.h>

#include "preset_bench.h"

using namespace orvan_test;

namespace {

namespace fs = std::filesystem;

using Lines = std::vector<LogLine>;

std::string contents(const fs::path& path)
{
    std::ostringstream all;
    all << std::ifstream(path).rdbuf();
    return all.str();
}

// ---- paths

TEST_F(PresetStore, ThePathHasTheChannelsFolderAndTheSetupsNumber)
{
    EXPECT_EQ(path_of(2, 3), "/home/orvan/halde/preset/2/preset-3.json");
    EXPECT_EQ(path_of(4, 1), "/home/orvan/halde/preset/4/preset-1.json");
    EXPECT_EQ(path_of(1, 12), "/home/orvan/halde/preset/1/preset-12.json");
    EXPECT_EQ(path_of(1, -1), "/home/orvan/halde/preset/1/preset--1.json");
}

TEST_F(PresetStore, SetupZeroIsOneFileForEveryChannel)
{
    for (int channel = 1; channel <= 4; ++channel) {
        EXPECT_EQ(path_of(channel, 0), "/home/orvan/halde/json/ch0.json");
    }
}

TEST_F(PresetStore, APathThatDoesNotFitIsCut)
{
    char path[12] = "###########";
    orvanx->get_json_db_path(2, 3, path, 8);
    EXPECT_STREQ(path, "/home/o");
    EXPECT_EQ(path[8], '#');
}

// ---- store

TEST_F(PresetStore, EveryChannelHasItsOwnFileAndReadsBackComplete)
{
    orvanx->set_powerOnRestore(true);
    for (int channel = 1; channel <= 4; ++channel) {
        set_sent_setup(channel);
        set(channel, ODT_FREQ, std::to_string(channel) + "000000");
        set(channel, ODT_INF_MODEL, "model of " + std::to_string(channel));
    }
    EXPECT_EQ(orvanx->database_store(3), 0);
    EXPECT_EQ(files_below("preset"), 4u);
    for (int channel = 1; channel <= 4; ++channel) {
        EXPECT_EQ(changed(stored(channel, 3), channel), Elements{}) << channel;
        EXPECT_EQ(stored(channel, 3).ANALOGOUTPUT.Frequency, channel * 1e6);
    }
    EXPECT_EQ(module.connections(), 0u);
    EXPECT_EQ(logs.lines(), Lines{});
}

TEST_F(PresetStore, OnlyInstalledChannelsAreStored)
{
    orvanx->setNumberofChannels(2);
    EXPECT_EQ(orvanx->database_store(1), 0);
    EXPECT_EQ(files_below("preset"), 2u);
    EXPECT_FALSE(fs::exists(files.preset(3, 1)));
    orvanx->setNumberofChannels(4);
}

TEST_F(PresetStore, SetupZeroIsRefusedAndNothingWritten)
{
    const std::string factory = contents(files.halde() / "json/ch0.json");
    const ORVAN_CONFIG before = record(1);
    EXPECT_EQ(orvanx->database_store(0), -3);
    EXPECT_EQ(files_below("preset"), 0u);
    EXPECT_EQ(contents(files.halde() / "json/ch0.json"), factory);
    EXPECT_EQ(changed(before, 1), Elements{});
    EXPECT_EQ(logs.lines(), Lines{});
}

TEST_F(PresetStore, NoHighNumberIsRefused)
{
    EXPECT_EQ(orvanx->database_store(6), 0);
    EXPECT_EQ(orvanx->database_store(INT_MAX), 0);
    EXPECT_EQ(stored(1, INT_MAX).CHANNEL.SetupNo, INT_MAX);
    EXPECT_EQ(orvanx->database_recall(6), 0);
    EXPECT_EQ(record(4).CHANNEL.SetupNo, 6);
}

TEST_F(PresetStore, RfIsStoredAsOffAndStaysOnInTheLiveRecord)
{
    orvanx->set_powerOnRestore(false);
    set(1, ODT_RF_OUT, "ON");
    EXPECT_EQ(orvanx->database_store(3), 0);
    EXPECT_EQ(stored(1, 3).ANALOGOUTPUT.RfOutput, Off);
    EXPECT_EQ(text(1, ODT_RF_OUT), "ON");
    EXPECT_EQ(text(2, ODT_RF_OUT), "OFF");
}

TEST_F(PresetStore, WithPowerOnRestoreTheFileKeepsTheRfState)
{
    orvanx->set_powerOnRestore(true);
    set(1, ODT_RF_OUT, "ON");
    EXPECT_EQ(orvanx->database_store(3), 0);
    EXPECT_EQ(stored(1, 3).ANALOGOUTPUT.RfOutput, On);
    EXPECT_EQ(stored(2, 3).ANALOGOUTPUT.RfOutput, Off);
    EXPECT_EQ(text(1, ODT_RF_OUT), "ON");
}

TEST_F(PresetStore, TheSetupsNumberIsStoredAndStaysInTheLiveRecord)
{
    EXPECT_EQ(orvanx->database_store(3), 0);
    EXPECT_EQ(orvanx->database_store(5), 0);
    for (int channel = 1; channel <= 4; ++channel) {
        EXPECT_EQ(stored(channel, 3).CHANNEL.SetupNo, 3);
        EXPECT_EQ(stored(channel, 5).CHANNEL.SetupNo, 5);
        EXPECT_EQ(text(channel, ODT_SETUP_NO), "5");
    }
}

TEST_F(PresetStore, AFailedChannelIsLoggedAndTheOthersAreStored)
{
    fs::remove(files.halde() / "preset/2");
    std::ofstream(files.halde() / "preset/2") << "a file in the folder's place";
    fs::remove(files.halde() / "preset/4");
    for (int channel : {2, 3}) {
        set(channel, ODT_RF_OUT, "ON");
    }
    EXPECT_EQ(orvanx->database_store(3), -1);
    EXPECT_EQ(logs.lines(),
              (Lines{{LOG_ERR, "Store failed: Mod 2, Index 3"}, {LOG_ERR, "Store failed: Mod 4, Index 3"}}));
    EXPECT_TRUE(fs::exists(files.preset(1, 3)));
    EXPECT_TRUE(fs::exists(files.preset(3, 3)));
    EXPECT_FALSE(fs::exists(files.halde() / "preset/4")) << "no folder is made";
    EXPECT_EQ(text(2, ODT_RF_OUT), "ON");
    EXPECT_EQ(text(2, ODT_SETUP_NO), "3");
}

TEST_F(PresetStore, AStoreThatFailsLeavesTheFormerFileAndNoDraft)
{
    put_folder_at(files.preset(1, 3));
    std::ofstream(files.preset(1, 3) / "in it") << "kept";
    EXPECT_EQ(orvanx->database_store(3), -1);
    EXPECT_EQ(contents(files.preset(1, 3) / "in it"), "kept");
    EXPECT_EQ(std::distance(fs::directory_iterator(files.halde() / "preset/1"), {}), 1);
}

// ---- clear

TEST_F(PresetStore, ClearingDeletesEveryChannelsFileOnceAndThenNothing)
{
    write_all(3);
    write_all(2);
    EXPECT_EQ(orvanx->database_clear(3), 0);
    EXPECT_EQ(logs.lines(), (Lines{{LOG_INFO, "Deleted: /home/orvan/halde/preset/1/preset-3.json"},
                                   {LOG_INFO, "Deleted: /home/orvan/halde/preset/2/preset-3.json"},
                                   {LOG_INFO, "Deleted: /home/orvan/halde/preset/3/preset-3.json"},
                                   {LOG_INFO, "Deleted: /home/orvan/halde/preset/4/preset-3.json"}}));
    EXPECT_EQ(files_below("preset"), 4u) << "setup 2 stays";
    logs.clear();
    EXPECT_EQ(orvanx->database_clear(3), 0);
    EXPECT_EQ(logs.lines(), Lines{});
}

TEST_F(PresetStore, SetupZeroIsNotCleared)
{
    EXPECT_EQ(orvanx->database_clear(0), -1);
    EXPECT_EQ(logs.lines(), (Lines{{LOG_ERR, "Cannot delete factory default databse 0"}}));
    EXPECT_TRUE(fs::exists(files.halde() / "json/ch0.json"));
}

TEST_F(PresetStore, AFileThatCannotBeRemovedIsLoggedAndTheOthersAreRemoved)
{
    write_all(3);
    fs::remove(files.preset(2, 3));
    put_folder_at(files.preset(2, 3));
    fs::remove_all(files.halde() / "preset/3");
    std::ofstream(files.halde() / "preset/3") << "a file in the folder's place";
    EXPECT_EQ(orvanx->database_clear(3), -1);
    EXPECT_EQ(logs.lines(),
              (Lines{{LOG_INFO, "Deleted: /home/orvan/halde/preset/1/preset-3.json"},
                     {LOG_ERR, "Clear failed: /home/orvan/halde/preset/2/preset-3.json (Is a directory)"},
                     {LOG_ERR, "Clear failed: /home/orvan/halde/preset/3/preset-3.json (Not a directory)"},
                     {LOG_INFO, "Deleted: /home/orvan/halde/preset/4/preset-3.json"}}));
}

TEST_F(PresetStore, AMissingFolderNeedsNoClearing)
{
    fs::remove_all(files.halde() / "preset");
    EXPECT_EQ(orvanx->database_clear(1), 0);
    EXPECT_EQ(logs.lines(), Lines{});
}

TEST_F(PresetStore, OnlyInstalledChannelsAreRecalledAndCleared)
{
    write_all(3, R"({"ANALOGOUTPUT": {"Frequency": 5}})");
    orvanx->setNumberofChannels(2);
    EXPECT_EQ(orvanx->database_recall(3), 0);
    EXPECT_EQ(record(2).ANALOGOUTPUT.Frequency, 5.0);
    EXPECT_EQ(record(3).ANALOGOUTPUT.Frequency, 1e9);
    EXPECT_EQ(orvanx->database_clear(3), 0);
    EXPECT_EQ(files_below("preset"), 2u);
    EXPECT_TRUE(fs::exists(files.preset(3, 3)));
    EXPECT_TRUE(fs::exists(files.preset(4, 3)));
    orvanx->setNumberofChannels(kMaxChannels); // as many as the records to be unmapped
}

// ---- validate

TEST_F(PresetStore, SixAndAboveAreInvalidWithoutALogLine)
{
    write_all(6);
    for (int setup : {6, 7, 255, INT_MAX}) {
        EXPECT_EQ(orvanx->validate_DB_files(setup), -1) << setup;
    }
    EXPECT_EQ(logs.lines(), Lines{});
}

TEST_F(PresetStore, ASetupWithAFileForEveryInstalledChannelIsValid)
{
    write_all(5);
    EXPECT_EQ(orvanx->validate_DB_files(5), 0);
    EXPECT_EQ(orvanx->validate_DB_files(0), 0);
    fs::remove(files.preset(4, 5));
    orvanx->setNumberofChannels(3);
    EXPECT_EQ(orvanx->validate_DB_files(5), 0);
    orvanx->setNumberofChannels(4);
    EXPECT_EQ(logs.lines(), Lines{});
}

TEST_F(PresetStore, OnlyTheFirstMissingFileIsLogged)
{
    write_all(5);
    fs::remove(files.preset(2, 5));
    fs::remove(files.preset(3, 5));
    EXPECT_EQ(orvanx->validate_DB_files(5), -1);
    EXPECT_EQ(logs.lines(), (Lines{{LOG_WARNING, "Validation Failed: Config 5 missing for Module 2"}}));
}

TEST_F(PresetStore, TheContentsOfAFileAreNotChecked)
{
    write_all(1, "no JSON");
    fs::remove(files.preset(3, 1));
    put_folder_at(files.preset(3, 1));
    EXPECT_EQ(orvanx->validate_DB_files(1), 0);
    fs::create_symlink("nowhere", files.preset(1, 2));
    EXPECT_EQ(orvanx->validate_DB_files(2), -1);
    EXPECT_EQ(orvanx->validate_DB_files(-1), -1);
    EXPECT_EQ(logs.lines(), (Lines{{LOG_WARNING, "Validation Failed: Config 2 missing for Module 1"},
                                   {LOG_WARNING, "Validation Failed: Config -1 missing for Module 1"}}));
}

TEST_F(PresetStore, WithoutTheFactorysFileSetupZeroIsMissing)
{
    fs::remove(files.halde() / "json/ch0.json");
    EXPECT_EQ(orvanx->validate_DB_files(0), -1);
    EXPECT_EQ(logs.lines(), (Lines{{LOG_WARNING, "Validation Failed: Config 0 missing for Module 1"}}));
}

// ---- without records

class PresetStoreBeforeLoad : protected WithInstrumentFiles, public FrontEndBench {};

TEST_F(PresetStoreBeforeLoad, NothingIsStoredOrRecalled)
{
    orvanx->setNumberofChannels(1);
    files.write_preset(1, 3, "{}");
    logs.clear();
    for (int setup : {0, 3}) {
        EXPECT_EQ(orvanx->database_store(setup), -1);
        EXPECT_EQ(orvanx->database_recall(setup), -1);
    }
    EXPECT_EQ(logs.lines(), Lines{});
}

TEST_F(PresetStoreBeforeLoad, FilesAreStillValidatedAndCleared)
{
    orvanx->setNumberofChannels(1);
    files.write_preset(1, 3, "{}");
    EXPECT_EQ(orvanx->validate_DB_files(3), 0);
    EXPECT_EQ(orvanx->database_clear(3), 0);
    EXPECT_FALSE(fs::exists(files.preset(1, 3)));
}

TEST_F(PresetStoreBeforeLoad, WithoutSettingsTheBootSetupIsZero)
{
    orvanx->set_bootDBConfig(3, true);
    EXPECT_EQ(orvanx->get_bootDBConfig(), 0);
}

} // namespace
