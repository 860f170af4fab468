// Setups as files: recall, and the boot setup.
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <syslog.h>

#include "preset_bench.h"

using namespace orvan_test;

namespace {

namespace fs = std::filesystem;

using Lines = std::vector<LogLine>;
using Requests = std::vector<std::string>;

// ---- recall

TEST_F(PresetStore, SetupZeroFillsEveryChannelFromTheOneFile)
{
    files.write_factory_setup(R"({"ANALOGOUTPUT": {"Frequency": 4711}})");
    for (int channel = 1; channel <= 4; ++channel) {
        set(channel, ODT_PWR, std::to_string(channel));
    }
    const size_t before = files.opened("json/ch0.json");
    EXPECT_EQ(orvanx->database_recall(0), 0);
    EXPECT_EQ(files.opened("json/ch0.json") - before, 4u);
    for (int channel = 1; channel <= 4; ++channel) {
        EXPECT_EQ(record(channel).ANALOGOUTPUT.Frequency, 4711.0);
        EXPECT_EQ(record(channel).ANALOGOUTPUT.Power, channel) << "not in the file";
    }
}

TEST_F(PresetStore, EveryChannelGetsItsOwnValuesBack)
{
    for (int channel = 1; channel <= 4; ++channel) {
        set_sent_setup(channel);
        set(channel, ODT_FREQ, std::to_string(channel) + "000000");
    }
    ASSERT_EQ(orvanx->database_store(2), 0);
    ORVAN_CONFIG before[4];
    for (int channel = 1; channel <= 4; ++channel) {
        before[channel - 1] = stored(channel, 2);
        for (int tag = 0; tag < static_cast<int>(kOrvanElementCount); ++tag) {
            set(channel, tag, "99");
        }
    }
    EXPECT_EQ(orvanx->database_recall(2), 0);
    for (int channel = 1; channel <= 4; ++channel) {
        EXPECT_EQ(changed(before[channel - 1], channel), Elements{});
    }
}

TEST_F(PresetStore, AllValuesThenAllStatesAreSentToEachLiveChannelInTurn)
{
    for (int channel : {1, 3, 4}) {
        set_sent_setup(channel);
    }
    set(3, ODT_PWR, "3");
    set(4, ODT_PWR, "4");
    orvanx->set_powerOnRestore(true);
    ASSERT_EQ(orvanx->database_store(1), 0);
    for (int channel : {1, 3, 4}) {
        orvanx->m_isLive[channel - 1] = true;
    }
    EXPECT_EQ(orvanx->database_recall(1), 0);

    Requests expected;
    for (const char* power : {":POWer -12.75\r\n", ":POWer 3\r\n", ":POWer 4\r\n"}) {
        for (const std::string& request : requests_of_setup()) {
            expected.push_back(request.starts_with(":POWer") ? power : request);
        }
    }
    EXPECT_EQ(module.requests(), expected);
}

TEST_F(PresetStore, AChannelThatIsNotLiveIsLoadedAndMarkedWithoutSending)
{
    write_all(4, R"({"CHANNEL": {"State": true}, "ANALOGOUTPUT": {"Frequency": 5}})");
    EXPECT_EQ(orvanx->database_recall(4), 0);
    for (int channel = 1; channel <= 4; ++channel) {
        EXPECT_EQ(record(channel).ANALOGOUTPUT.Frequency, 5.0);
        EXPECT_EQ(record(channel).CHANNEL.State, Off) << "whatever the file says";
    }
    EXPECT_EQ(module.connections(), 0u);
}

TEST_F(PresetStore, StateReportsLivenessWithAndWithoutAFile)
{
    files.write_preset(1, 4, "{}");
    files.write_preset(2, 4, "{}");
    orvanx->m_isLive[0] = orvanx->m_isLive[2] = true;
    set(2, ODT_CHAN_STAT, "ON");
    set(4, ODT_CHAN_STAT, "ON");
    EXPECT_EQ(orvanx->database_recall(4), -1);
    EXPECT_EQ(record(1).CHANNEL.State, On);
    EXPECT_EQ(record(2).CHANNEL.State, Off);
    EXPECT_EQ(record(3).CHANNEL.State, On);
    EXPECT_EQ(record(4).CHANNEL.State, Off);
}

TEST_F(PresetStore, AFailedChannelIsLoggedAndKeepsItsRecordAndSendsNothing)
{
    write_all(3, R"({"ANALOGOUTPUT": {"Frequency": 5}})");
    fs::remove(files.preset(1, 3));
    files.write_preset(3, 3, R"({"ANALOGOUTPUT": {"Frequency": "fast"}})");
    orvanx->m_isLive[0] = orvanx->m_isLive[2] = true;
    EXPECT_EQ(orvanx->database_recall(3), -1);
    EXPECT_EQ(logs.lines(), (Lines{{LOG_ERR, "Recall failed: Mod 1, Index 3"},
                                   {LOG_ERR, "Recall failed: Mod 3, Index 3"}}));
    EXPECT_EQ(record(1).ANALOGOUTPUT.Frequency, 1e9);
    EXPECT_EQ(record(2).ANALOGOUTPUT.Frequency, 5.0);
    EXPECT_EQ(record(3).ANALOGOUTPUT.Frequency, 1e9);
    EXPECT_EQ(record(4).ANALOGOUTPUT.Frequency, 5.0);
    EXPECT_EQ(module.connections(), 0u);
}

TEST_F(PresetStore, ARefusedCommandIsNoFailureOfTheRecall)
{
    module.always(ModuleAnswer::reply("-ERR -222;+OK\r\n"));
    write_all(1);
    orvanx->m_isLive[3] = true;
    EXPECT_EQ(orvanx->database_recall(1), 0);
    EXPECT_EQ(module.connections(), requests_of_setup().size());
    EXPECT_EQ(record(4).CHANNEL.State, On);
}

TEST_F(PresetStore, TheNetworkElementsComeFromTheControllerNotTheFiles)
{
    std::strcpy(settings_in_memory().scpiPort, "5025");
    write_all(
        1, R"({"SYSTEM": {"Interface": "eth9", "Address": "1.2.3.4", "Port": "1", "HOSTname": "stored"}})");
    files.stand_in_for_sudo("echo Static eth0 10.0.0.2 255.255.255.0 10.0.0.1 02:00:00:00:00:01");
    EXPECT_EQ(orvanx->database_recall(1), 0);
    for (int channel = 1; channel <= 4; ++channel) {
        EXPECT_EQ(text(channel, ODT_IF_NAME), "eth0");
        EXPECT_EQ(text(channel, ODT_IF_ADDR), "10.0.0.2");
        EXPECT_EQ(text(channel, ODT_IF_PORT), "5025");
        EXPECT_EQ(text(channel, ODT_HOST), "stored");
    }
}

TEST_F(PresetStore, TheNetworkIsReadEvenIfEveryChannelFailed)
{
    settings_in_memory();
    files.stand_in_for_sudo("echo Static eth0 10.0.0.2 255.255.255.0 10.0.0.1 02:00:00:00:00:01");
    EXPECT_EQ(orvanx->database_recall(5), -1);
    EXPECT_EQ(text(4, ODT_IF_NAME), "eth0");
}

TEST_F(PresetStore, AnUnknownNetworkIsNoFailureOfTheRecall)
{
    settings_in_memory();
    write_all(1);
    files.stand_in_for_sudo("exit 1");
    EXPECT_EQ(orvanx->database_recall(1), 0);
}

TEST_F(PresetStore, ValuesFromStartUpAreOverwrittenAndTheSelectionIsNot)
{
    ASSERT_EQ(orvanx->database_store(1), 0);
    set(2, ODT_INF_MODEL, "of this start");
    orvanx->setSelectedChannel(2);
    EXPECT_EQ(orvanx->database_recall(1), 0);
    EXPECT_EQ(text(2, ODT_INF_MODEL), "");
    EXPECT_EQ(orvanx->getSelectedChannel(), 2);
}

// ---- the boot setup

TEST_F(PresetStore, TheBootSetupIsAByteOfTheSettings)
{
    settings_in_memory().bootDBConfig = 2;
    EXPECT_EQ(orvanx->get_bootDBConfig(), 2);
    orvanx->set_bootDBConfig(3, false);
    EXPECT_EQ(settings_in_memory().bootDBConfig, 3);
    for (const auto& [given, kept] : std::map<int, int>{{255, 255}, {256, 0}, {259, 3}, {-1, 255}}) {
        orvanx->set_bootDBConfig(given, false);
        EXPECT_EQ(orvanx->get_bootDBConfig(), kept) << given;
    }
}

// The settings have neither bus nor folder here: a write would end the process.
TEST_F(PresetStore, TheBootSetupIsWrittenOnlyOnRequestAndWithADevice)
{
    settings_in_memory();
    orvanx->set_bootDBConfig(3, true);
    char device;
    orvanx->setDevicePtr(&device);
    orvanx->set_bootDBConfig(4, false);
    EXPECT_EQ(orvanx->get_bootDBConfig(), 4);
    orvanx->setDevicePtr(nullptr);
}

} // namespace
