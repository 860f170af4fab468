#include <filesystem>

#include <gmock/gmock.h>

#include "many_modules_bench.h"
#include "orvan_sdk/scpi-parser/scpi_cmd_orvanx.h"
#include "result_tap.h"
#include "setup_bench.h"
#include "support/output_capture.h"
#include "support/rendezvous.h"

using namespace orvan_test;
using HaldeElec::Orvan::sDevArch_t;
using testing::IsEmpty;

namespace {

namespace fs = std::filesystem;

const std::string kNotAllowed = "-ERR -108, \"Parameter not allowed\";+OK\r\n";

class SetupHandlers : public ManyModulesBench {
protected:
    explicit SetupHandlers(int channels = kMaxChannels) : ManyModulesBench(channels) {}

    static std::string line(const std::string& handler, const std::string& said)
    {
        return handler + ": " + said + "\n";
    }

    /** Puts a file of the setup into every channel's folder. */
    void write_setup(int setup)
    {
        for (int channel = 1; channel <= orvanx->getNumberofChannels(); ++channel) {
            files.write_preset(channel, setup, "{}");
        }
    }

    size_t files_of(int setup)
    {
        size_t found = 0;
        for (int channel = 1; channel <= kMaxChannels; ++channel) {
            found += fs::is_regular_file(files.preset(channel, setup)) ? 1 : 0;
        }
        return found;
    }
};

// ---- stored setups

struct StoredRow {
    const char* header;
    const char* handler;
    int first;
    const char* out_of_range;
    const char* failed;
    const char* missing;
};

void PrintTo(const StoredRow& row, std::ostream* out)
{
    *out << row.header;
}

class StoredSetup : public SetupHandlers, public testing::WithParamInterface<StoredRow> {
protected:
    std::string ask_for(const std::string& setup) { return ask(GetParam().header + (" " + setup)); }
};

TEST_P(StoredSetup, AcceptsTheNumbersInItsRange)
{
    for (int setup = GetParam().first; setup <= 5; ++setup) {
        if (setup > 0) {
            write_setup(setup);
        }
        EXPECT_EQ(ask_for(std::to_string(setup)), "+OK\r\n") << setup;
    }
    EXPECT_THAT(take_errors(), IsEmpty());
    EXPECT_THAT(take_error_lines(), IsEmpty());
}

TEST_P(StoredSetup, RefusesOthersWithoutALogLine)
{
    const std::string before = all_bytes();
    for (const char* setup : {"0", "6", "259", "4294967295"}) {
        if (std::string(setup) == "0" && GetParam().first == 0) {
            continue;
        }
        const int shown = static_cast<int>(std::stoul(setup));
        EXPECT_EQ(ask_for(setup), kNotAllowed);
        EXPECT_EQ(take_errors(), Lines{std::string("-108 ") + GetParam().out_of_range + " setup " +
                                       std::to_string(shown) + " not allowed"});
    }
    EXPECT_THAT(take_error_lines(), IsEmpty());
    EXPECT_EQ(all_bytes(), before);
}

TEST_P(StoredSetup, NeedsItsNumber)
{
    EXPECT_EQ(ask(GetParam().header), kMissingParameter);
    EXPECT_EQ(take_errors(), Lines{"-109 Param 0"});
    EXPECT_EQ(
        take_error_lines(),
        Lines{line(GetParam().handler, std::string("Failed to retrieve a mandatory ") + GetParam().missing)});
}

TEST_P(StoredSetup, AFailureIsAnExecutionError)
{
    // A folder in the place of one channel's file is neither written nor read nor deleted.
    write_setup(3);
    fs::remove(files.preset(2, 3));
    fs::create_directories(files.preset(2, 3) / "inside");
    EXPECT_EQ(ask_for("3"), kExecutionError);
    EXPECT_EQ(take_errors(), Lines{std::string("-200 ") + GetParam().failed});
    EXPECT_EQ(take_error_lines().size(), 1u); // the store's own
}

TEST_P(StoredSetup, WithoutAServiceIsASuccessThatDoesNothing)
{
    write_setup(2);
    const std::string before = all_bytes();
    take_service_away();
    EXPECT_EQ(ask_for("2"), "+OK\r\n");
    EXPECT_EQ(ask_for("1"), "+OK\r\n");
    EXPECT_EQ(ask_for("6"), kNotAllowed);
    EXPECT_EQ(files_of(2), 4u);
    EXPECT_EQ(files_of(1), 0u);
    EXPECT_EQ(all_bytes(), before);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Rows, StoredSetup, testing::Values(
    StoredRow{":SYST:SET:STOR", "OrvanX_DBStore",  1, "writing",   "Failed to save configuration",   "setup configuration number parameter"},
    StoredRow{":SYST:SET:CLE",  "OrvanX_DBClear",  1, "erasing",   "Failed to delete configuration", "parameter 0"},
    StoredRow{":SYST:SET:REC",  "OrvanX_DBRecall", 0, "recalling", "Failed to recall configuration", "parameter 0"}),
    [](const testing::TestParamInfo<StoredRow>& row) { return std::string(row.param.handler); });
// clang-format on

TEST_F(SetupHandlers, ASetupIsStoredRecalledAndCleared)
{
    write_setup(4); // makes the folders
    record(2).ANALOGOUTPUT.Power = -3.5;
    EXPECT_EQ(ask(":SYST:SET:STOR 4"), "+OK\r\n");
    record(2).ANALOGOUTPUT.Power = 9;
    EXPECT_EQ(ask(":SYST:SET:REC 4"), "+OK\r\n");
    EXPECT_EQ(record(2).ANALOGOUTPUT.Power, -3.5);
    EXPECT_EQ(files_of(4), 4u);
    EXPECT_EQ(ask(":SYST:SET:CLE 4"), "+OK\r\n");
    EXPECT_EQ(files_of(4), 0u);
    EXPECT_EQ(ask(":SYST:SET:CLE 4"), "+OK\r\n");
    EXPECT_EQ(ask(":SYST:SET:REC 4"), kExecutionError);
}

// ---- power-up setup

TEST_F(SetupHandlers, ThePowerUpSetupNeedsAFileForEveryChannel)
{
    settings_in_memory().bootDBConfig = 1;
    const std::string not_found = std::string("-ERR -256, \"") + SCPI_ErrorTranslate(-256) + "\";+OK\r\n";
    write_setup(3);
    fs::remove(files.preset(4, 3));
    for (const char* setup : {"3", "9", "4294967295"}) { // there is no test of a range
        EXPECT_EQ(ask(std::string(":SYST:POW:SET ") + setup), not_found);
        EXPECT_EQ(take_errors(), Lines{"-256 DB files not found"});
    }
    EXPECT_THAT(take_error_lines(), IsEmpty());
    EXPECT_EQ(orvanx->get_bootDBConfig(), 1);
}

TEST_F(SetupHandlers, ThePowerUpSetupReadsBack)
{
    settings_in_memory().bootDBConfig = 1;
    write_setup(5);
    EXPECT_EQ(ask(":SYST:POW:SET?"), "1;+OK\r\n");
    EXPECT_EQ(ask(":SYST:POW:SET 5"), "+OK\r\n");
    EXPECT_EQ(ask(":SYST:POW:SET?"), "5;+OK\r\n");
    EXPECT_EQ(ask(":SYST:POW:SET 0"), "+OK\r\n");
    EXPECT_EQ(ask(":SYST:POW:SET?"), "0;+OK\r\n");
}

TEST_F(SetupHandlers, ThePowerUpSetupIsFormattedByTheParserLibrary)
{
    settings_in_memory().bootDBConfig = 255;
    ResultTap results;
    EXPECT_EQ(ask(":SYST:POW:SET?"), "255;+OK\r\n");
    EXPECT_EQ(results.calls, Lines{"SCPI_ResultUInt32Base 255 to the base 10"});
    results.refuses = true;
    EXPECT_EQ(ask(":SYST:POW:SET?"), kTooMuchData);
    EXPECT_EQ(take_errors(), Lines{"-223 copy data out failed"});
    EXPECT_EQ(take_error_lines(), Lines{line("OrvanX_getPowerupDB", "Failed to copy output data")});
}

TEST_F(SetupHandlers, ThePowerUpSetupNeedsItsNumber)
{
    EXPECT_EQ(ask(":SYST:POW:SET"), kMissingParameter);
    EXPECT_EQ(take_errors(), Lines{"-109 Param 0"});
    EXPECT_EQ(take_error_lines(),
              Lines{line("OrvanX_setPowerupDB", "Failed to retrieve a mandatory power setup parameter")});
}

TEST_F(SetupHandlers, ThePowerUpSetupWithoutAServiceIsNeitherSetNorKnown)
{
    settings_in_memory().bootDBConfig = 1;
    take_service_away();
    EXPECT_EQ(ask(":SYST:POW:SET 0"), "+OK\r\n");
    EXPECT_EQ(settings_in_memory().bootDBConfig, 1);
    EXPECT_EQ(ask(":SYST:POW:SET?"), kExecutionError);
}

// ---- reset

/** Records with each RF output the channel that was selected for it. */
class SelectionNotingDevice : public RecordingDevice {
public:
    explicit SelectionNotingDevice(Scpi_Orvanx& orvanx) : m_orvanx(orvanx) {}
    int SetRFOutput(OnOff value) override
    {
        const int result = RecordingDevice::SetRFOutput(value);
        calls.back() += " on channel " + std::to_string(m_orvanx.getSelectedChannel());
        return result;
    }

private:
    Scpi_Orvanx& m_orvanx;
};

class Reset : public SetupHandlers {
protected:
    explicit Reset(int channels = kMaxChannels) : SetupHandlers(channels)
    {
        put_device(&noting);
        settings_in_memory().bootDBConfig = 0;
    }

    void expect_nothing_restored(const std::string& before)
    {
        EXPECT_THAT(noting.calls, IsEmpty());
        EXPECT_EQ(all_bytes(), before);
    }

    SelectionNotingDevice noting{*orvanx};
};

TEST_F(Reset, ReachesEveryModuleAtTheSameTime)
{
    Rendezvous all(4);
    for (ScriptedModule& each : modules) {
        each.always(ModuleAnswer::reply_after([&] { all.meet(); }, "+OK\r\n"));
    }
    EXPECT_EQ(ask("*RST"), "+OK\r\n");
    EXPECT_TRUE(all.everybody_met());
    for (const ScriptedModule& each : modules) {
        EXPECT_EQ(each.requests(), Lines{"*RST\r\n"});
    }
    EXPECT_THAT(take_errors(), IsEmpty());
    EXPECT_THAT(take_error_lines(), IsEmpty());
}

TEST_F(Reset, LoadsThePowerUpSetupAndMakesEachOutputFollowIt)
{
    write_setup(2); // makes the folders
    orvanx->set_powerOnRestore(true);
    for (int channel : {1, 4}) {
        record(channel).ANALOGOUTPUT.RfOutput = On;
    }
    record(3).ANALOGOUTPUT.Power = -7;
    ASSERT_EQ(orvanx->database_store(2), 0);
    settings_in_memory().bootDBConfig = 2;
    for (int channel = 1; channel <= 4; ++channel) {
        record(channel).ANALOGOUTPUT = {};
    }
    orvanx->setSelectedChannel(3);

    EXPECT_EQ(ask("*RST"), "+OK\r\n");
    EXPECT_EQ(record(3).ANALOGOUTPUT.Power, -7);
    EXPECT_EQ(noting.calls, (Lines{"SetRFOutput 1 on channel 1", "SetRFOutput 0 on channel 2",
                                   "SetRFOutput 0 on channel 3", "SetRFOutput 1 on channel 4"}));
    EXPECT_EQ(orvanx->getSelectedChannel(), 3);
}

TEST_F(Reset, SendsTheSetupToModulesThatAreLive)
{
    orvanx->m_isLive[1] = true;
    EXPECT_EQ(ask("*RST"), "+OK\r\n");
    EXPECT_EQ(modules[0].connections(), 1u);
    ASSERT_GT(modules[1].requests().size(), 1u);
    EXPECT_EQ(modules[1].requests().front(), "*RST\r\n");
    EXPECT_EQ(record(2).CHANNEL.State, On);
}

TEST_F(Reset, CompletesTheRecordsOnceTheModelIsKnown)
{
    EXPECT_EQ(ask("*RST"), "+OK\r\n");
    EXPECT_EQ(text(2, ODT_INF_MODEL), "");
    const sDevArch_t arch = {"OVX3654B", 20000000000, 4, 1, 0x3604, 0x168c, 1};
    noting.arch = &arch;
    EXPECT_EQ(ask("*RST"), "+OK\r\n");
    for (int channel = 1; channel <= 4; ++channel) {
        EXPECT_EQ(text(channel, ODT_INF_MODEL), "OVX3654B");
    }
}

TEST_F(Reset, TheModelOverridesTheLoadedSetup)
{
    write_setup(2); // makes the folders
    char other[] = "other";
    ASSERT_EQ(orvanx->update_db(2, ODT_INF_MODEL, other, sizeof other), 0);
    ASSERT_EQ(orvanx->database_store(2), 0);
    settings_in_memory().bootDBConfig = 2;
    const sDevArch_t arch = {"OVX3654B", 20000000000, 4, 1, 0x3604, 0x168c, 1};
    noting.arch = &arch;
    orvanx->setSelectedChannel(3);
    EXPECT_EQ(ask("*RST"), "+OK\r\n");
    EXPECT_EQ(text(2, ODT_INF_MODEL), "OVX3654B");
    EXPECT_EQ(orvanx->getSelectedChannel(), 3);
}

TEST_F(Reset, ASetupThatCannotBeLoadedIsNoFailure)
{
    settings_in_memory().bootDBConfig = 5;
    EXPECT_EQ(ask("*RST"), "+OK\r\n");
    EXPECT_EQ(noting.calls.size(), 4u);
    EXPECT_THAT(take_errors(), IsEmpty());
}

TEST_F(Reset, AnOutputThatTheDeviceRefusesIsNoFailure)
{
    noting.refused.insert("SetRFOutput");
    EXPECT_EQ(ask("*RST"), "+OK\r\n");
    EXPECT_EQ(noting.calls.size(), 4u);
}

TEST_F(Reset, DoesNotResetTheParser)
{
    OutputCapture errors(STDERR_FILENO);
    EXPECT_EQ(ask("*RST"), "+OK\r\n");
    EXPECT_EQ(errors.text().find("**Reset"), std::string::npos) << errors.text();
}

TEST_F(Reset, WithAllModulesDeadReportsTheFirst)
{
    const std::string before = all_bytes();
    for (int channel = 1; channel <= 4; ++channel) {
        kill_module(channel);
    }
    EXPECT_EQ(ask("*RST"), kCommunicationError);
    EXPECT_EQ(take_errors(), Lines{"-360 Module 1 communication error"});
    EXPECT_EQ(take_error_lines(), Lines{line("OrvanX_Reset", "-ERR Unable to connect")});
    expect_nothing_restored(before);
}

TEST_F(Reset, NeedsDeviceAndService)
{
    const std::string before = all_bytes();
    put_device(nullptr);
    EXPECT_EQ(ask("*RST"), kExecutionError);
    put_device(&noting);
    take_service_away();
    EXPECT_EQ(ask("*RST"), kExecutionError);
    EXPECT_EQ(take_errors(), (Lines{"-200 ", "-200 "}));
    EXPECT_THAT(take_error_lines(), IsEmpty());
    EXPECT_EQ(connections(), 0u);
    expect_nothing_restored(before);
}

TEST_F(Reset, WithoutAUserRecordIsNotInitialized)
{
    EXPECT_EQ(call_without_user_record(OrvanX_Reset), SCPI_RES_ERR);
    EXPECT_EQ(take_errors(), Lines{"-310 Target is not initialized"});
    EXPECT_EQ(take_error_lines(), Lines{line("OrvanX_Reset", "Target is not initialized")});
    EXPECT_EQ(connections(), 0u);
}

class ResetOfThree : public Reset {
protected:
    ResetOfThree() : Reset(3) {}
};

TEST_F(ResetOfThree, WithTheSecondDeadRestoresNothing)
{
    const std::string before = all_bytes();
    settings_in_memory().bootDBConfig = 0;
    record(1).ANALOGOUTPUT.Power = 1; // what a recall would put back
    const std::string changed = all_bytes();
    ASSERT_NE(before, changed);
    kill_module(2);
    EXPECT_EQ(ask("*RST"), kCommunicationError);
    EXPECT_EQ(take_errors(), Lines{"-360 Module 2 communication error"});
    EXPECT_EQ(take_error_lines(), Lines{line("OrvanX_Reset", "-ERR Unable to connect")});
    expect_nothing_restored(changed);
    EXPECT_EQ(modules[0].requests(), Lines{"*RST\r\n"});
    EXPECT_EQ(modules[2].requests(), Lines{"*RST\r\n"}); // its task has ended when the reply comes
    EXPECT_EQ(modules[3].connections(), 0u);
}

TEST_F(ResetOfThree, ARefusalCountsAsADeadModule)
{
    modules[2].always(ModuleAnswer::reply("-ERR -300, \"Device error\"\r\n"));
    EXPECT_EQ(ask("*RST"), kCommunicationError);
    EXPECT_EQ(take_errors(), Lines{"-360 Module 3 communication error"});
    EXPECT_EQ(take_error_lines(), Lines{line("OrvanX_Reset", "-ERR -300, \"Device error\"\r\n")});
}

TEST_F(ResetOfThree, SwitchesTheInstalledOutputsAndNoOther)
{
    orvanx->setSelectedChannel(2);
    EXPECT_EQ(ask("*RST"), "+OK\r\n");
    EXPECT_EQ(noting.calls, (Lines{"SetRFOutput 0 on channel 1", "SetRFOutput 0 on channel 2",
                                   "SetRFOutput 0 on channel 3"}));
    EXPECT_EQ(orvanx->getSelectedChannel(), 2);
    EXPECT_EQ(modules[3].connections(), 0u);
}

// ---- power-on restore mode

TEST_F(SetupHandlers, ThePowerOnRestoreModeStartsManualAndReadsBack)
{
    EXPECT_EQ(ask(":INT:OUTP:REST:MODE?"), "MANUAL;+OK\r\n");
    EXPECT_EQ(ask(":INT:OUTP:REST:MODE AUTO"), "+OK\r\n");
    EXPECT_TRUE(orvanx->get_powerOnRestore());
    EXPECT_EQ(ask(":OUTP:REST:MODE?"), "AUTO;+OK\r\n");
    EXPECT_EQ(ask(":INT:OUTP:REST:MODE MANUAL"), "+OK\r\n");
    EXPECT_FALSE(orvanx->get_powerOnRestore());
    EXPECT_EQ(ask(":INT:OUTP:REST:MODE?"), "MANUAL;+OK\r\n");
    EXPECT_THAT(device.calls, IsEmpty());
    EXPECT_EQ(connections(), 0u);
}

TEST_F(SetupHandlers, ThePowerOnRestoreModeIsOneOfTwoWords)
{
    const std::string said =
        line("OrvanX_setPwrOnResore", "Failed to retrieve a mandatory channel parameter");
    EXPECT_EQ(ask(":INT:OUTP:REST:MODE"), kMissingParameter);
    EXPECT_EQ(take_errors(), Lines{"-109 Param 0"});
    EXPECT_EQ(take_error_lines(), Lines{said});
    EXPECT_EQ(ask(":INT:OUTP:REST:MODE MAN"), "-ERR -224, \"Illegal parameter value\";+OK\r\n");
    EXPECT_EQ(take_errors(), Lines{"-224 Param 0"});
    EXPECT_EQ(take_error_lines(), Lines{said});
    take_service_away();
    EXPECT_EQ(ask(":INT:OUTP:REST:MODE AUTO"), "+OK\r\n");
    EXPECT_EQ(ask(":INT:OUTP:REST:MODE?"), kExecutionError);
    EXPECT_FALSE(orvanx->get_powerOnRestore());
}

// ---- fans

TEST_F(SetupHandlers, TheFanModeIsKeptByTheDevice)
{
    EXPECT_EQ(ask(":SYST:FAN:MODE AUTO"), "+OK\r\n");
    EXPECT_EQ(ask(":SYST:FAN:MODE fixed"), "+OK\r\n");
    EXPECT_EQ(device.take_calls(), (Lines{"SetFanMode 0", "SetFanMode 1"}));
    for (const auto& [mode, reply] : std::map<int, std::string>{{0, "AUTO"}, {1, "FIXED"}, {2, "FIXED"}}) {
        device.numbers["GetFanMode"] = mode;
        EXPECT_EQ(ask(":SYST:FAN:MODE?"), reply + ";+OK\r\n");
        EXPECT_EQ(device.take_calls(), Lines{"GetFanMode"});
    }
}

TEST_F(SetupHandlers, TheFanModeNeedsItsParameterAndADevice)
{
    EXPECT_EQ(ask(":SYST:FAN:MODE"), kMissingParameter);
    EXPECT_EQ(take_errors(), Lines{"-109 Param 0"});
    EXPECT_EQ(take_error_lines(),
              Lines{line("OrvanX_setFanMode", "Failed to retrieve a mandatory channel parameter")});
    EXPECT_EQ(ask(":SYST:FAN:MODE 1"), "-ERR -224, \"Illegal parameter value\";+OK\r\n");
    EXPECT_THAT(device.calls, IsEmpty());
    put_device(nullptr);
    logs.clear();
    EXPECT_EQ(ask(":SYST:FAN:MODE AUTO"), kExecutionError);
    EXPECT_EQ(ask(":SYST:FAN:MODE?"), kExecutionError);
    EXPECT_THAT(take_error_lines(), IsEmpty());
}

} // namespace
