// What goes from the records to a module, and what only the controller knows into the records.
#include "edited_row.h"
#include "setup_bench.h"

#include "orvan_sdk/IOrvanDeviceManager.h"

#include <algorithm>

using namespace orvan_test;
using HaldeElec::Orvan::EEPROM_DEVICE_SETTINGS;
using HaldeElec::Orvan::IOrvanDeviceManager;
using HaldeElec::Orvan::sDevArch_t;

namespace {

using Lines = std::vector<LogLine>;
using Requests = std::vector<std::string>;

// ---- get_scpi_pattern

TEST(ScpiPattern, LosesItsOptionalPartsAndKeepsItsForms)
{
    const scpi_command_t commands[] = {
        {":OUTPut[:STATe]", nullptr, 1},
        {"[:SOURce]:FREQuency", nullptr, 2},
        {"[:SOURce]:AM:INTernal:FREQuency", nullptr, 3},
        {"*RST", nullptr, 4},
        {"[:A][:B]", nullptr, 5},
        {nullptr, nullptr, 0},
    };
    EXPECT_EQ(get_scpi_pattern(commands, 1), ":OUTPut");
    EXPECT_EQ(get_scpi_pattern(commands, 2), ":FREQuency");
    EXPECT_EQ(get_scpi_pattern(commands, 3), ":AM:INTernal:FREQuency");
    EXPECT_EQ(get_scpi_pattern(commands, 4), "*RST");
    EXPECT_EQ(get_scpi_pattern(commands, 5), "");
}

TEST(ScpiPattern, IsThatOfTheFirstRowWithTheTag)
{
    const scpi_command_t commands[] = {
        {":SET", nullptr, 7},  {":SET?", nullptr, 7}, {":OTHer", nullptr, 7},
        {":ASK?", nullptr, 8}, {":ASK", nullptr, 8},  {nullptr, nullptr, 9},
    };
    EXPECT_EQ(get_scpi_pattern(commands, 7), ":SET");
    EXPECT_EQ(get_scpi_pattern(commands, 8), ":ASK?");
    EXPECT_EQ(get_scpi_pattern(commands, 9), "") << "the end row is none";
}

TEST(ScpiPattern, IsEmptyForATagThatNoRowHas)
{
    EXPECT_EQ(get_scpi_pattern(scpi_commands, 9999), "");
    EXPECT_EQ(get_scpi_pattern(scpi_commands, ODT_PM_SRC), "");
    const scpi_command_t none[] = {{nullptr, nullptr, 1}};
    EXPECT_EQ(get_scpi_pattern(none, 1), "");
}

TEST(ScpiPattern, OfAQueryOnlyElementEndsInAQuestionMark)
{
    EXPECT_EQ(get_scpi_pattern(scpi_commands, ODT_TEMP), ":SYSTem:TEMPerature?");
    EXPECT_EQ(get_scpi_pattern(scpi_commands, ODT_INF_MODEL), ":SYSTem:INFormation:MODel?");
    EXPECT_EQ(get_scpi_pattern(scpi_commands, ODT_REF_OSC_MODE), ":ROSCillator:SOURce?");
}

TEST(ScpiPattern, OfEverySentElementSetsIt)
{
    for (const std::span<const SentElement> pass :
         {std::span<const SentElement>(kSentValues), std::span<const SentElement>(kSentStates)})
        for (const SentElement& element : pass)
            EXPECT_EQ(get_scpi_pattern(scpi_commands, element.tag), element.header);
}

// ---- scpi_cmds_pass

class CommandPass : public SetupBench {
protected:
    CommandPass() : SetupBench(2) {}
};

TEST(CommandPasses, HoldTheElementsThatTheElementTableMarks)
{
    std::vector<int> marked[3];
    for (int tag = 0; tag < static_cast<int>(kOrvanElementCount); ++tag)
        marked[OrvanData::orvanMap[tag].send].push_back(tag);
    const auto tags = [](std::span<const SentElement> pass) {
        std::vector<int> found;
        for (const SentElement& element : pass)
            found.push_back(element.tag);
        return found;
    };
    EXPECT_EQ(marked[eSendPri1], tags(kSentValues));
    EXPECT_EQ(marked[eSendPri2], tags(kSentStates));
}

TEST_F(CommandPass, EachElementIsARequestOfItsOwnInTheOrderOfTheTags)
{
    set_sent_setup(1);
    orvanx->scpi_cmds_pass(1, eSendPri1);
    EXPECT_EQ(module.requests(), requests_of(kSentValues));
}

TEST_F(CommandPass, TheSecondPassHasTheStates)
{
    set_sent_setup(1);
    orvanx->scpi_cmds_pass(1, eSendPri2);
    EXPECT_EQ(module.requests(), requests_of(kSentStates));
}

TEST_F(CommandPass, GoesToTheChannelsModuleWithItsRecordAndAsksNothingOfLiveness)
{
    const ScriptedModule second("127.0.8.1");
    put_module_behind(2, second);
    set_sent_setup(2);
    orvanx->m_isLive[1] = false;
    orvanx->scpi_cmds_pass(2, eSendPri1);
    EXPECT_EQ(second.requests(), requests_of(kSentValues));
    EXPECT_EQ(module.connections(), 0u);
}

TEST_F(CommandPass, EachAcceptedCommandIsLogged)
{
    Lines expected;
    for (const SentElement& element : kSentStates)
        expected.push_back({LOG_INFO, std::string("command ") + element.header + " sent: OK"});
    orvanx->scpi_cmds_pass(1, eSendPri2);
    EXPECT_EQ(logs.lines(), expected);
}

TEST_F(CommandPass, ARefusedCommandIsLoggedWithItsReplyAndTheNextOneFollows)
{
    module.then(ModuleAnswer::reply("+OK\r\n"));
    module.then(ModuleAnswer::reply("-ERR -222, \"Data out of range\";+OK\r\n"));
    orvanx->scpi_cmds_pass(1, eSendPri2);
    const Requests sent = module.requests();
    EXPECT_EQ(sent.size(), requests_of(kSentStates).size());
    const std::string header = sent[1].substr(0, sent[1].find(' '));
    const Lines lines = logs.lines();
    ASSERT_EQ(lines.size(), sent.size() + 1);
    EXPECT_EQ(lines[1], (LogLine{LOG_INFO, "checkOrvanReply: -ERR -222, \"Data out of range\";+OK\r\n"}));
    EXPECT_EQ(lines[2],
              (LogLine{LOG_INFO, "command " + header + " sent: -ERR -222, \"Data out of range\";+OK\r\n"}));
    EXPECT_TRUE(lines[3].text.ends_with(" sent: OK"));
}

TEST_F(CommandPass, WithAModuleDownEveryElementIsTriedAndLogged)
{
    {
        const ScriptedModule gone;
        put_module_behind(1, gone);
    }
    orvanx->scpi_cmds_pass(1, eSendPri1);
    for (const SentElement& element : kSentValues)
        EXPECT_EQ(
            logs.count(LOG_INFO, std::string("command ") + element.header + " sent: -ERR Unable to connect"),
            1u);
    EXPECT_EQ(logs.count(LOG_INFO, "checkOrvanReply: -ERR Unable to connect"), std::size(kSentValues));
}

TEST_F(CommandPass, AModuleThatClosesWithoutAWordHasAccepted)
{
    module.always(ModuleAnswer::close_mute());
    orvanx->scpi_cmds_pass(1, eSendPri2);
    EXPECT_EQ(logs.count(LOG_INFO, "command :AM sent: OK"), 1u);
}

TEST_F(CommandPass, AnEmptyTextIsSentAsNothing)
{
    set(1, ODT_LIST_DEF, "");
    orvanx->scpi_cmds_pass(1, eSendPri1);
    const Requests sent = module.requests();
    EXPECT_EQ(std::count(sent.begin(), sent.end(), ":LIST:DEFine \r\n"), 1);
}

TEST_F(CommandPass, AnElementWithoutARowInTheLanguageIsNotSentWhateverItsMark)
{
    OrvanElementData marked = OrvanData::orvanMap[ODT_PM_SRC];
    marked.send = eSendPri1;
    const EditedRow edited(OrvanData::orvanMap[ODT_PM_SRC], marked);
    orvanx->scpi_cmds_pass(1, eSendPri1);
    EXPECT_EQ(module.connections(), std::size(kSentValues));
}

TEST_F(CommandPass, AnElementThatIsMarkedAndHasARowIsSent)
{
    OrvanElementData marked = OrvanData::orvanMap[ODT_TEMP];
    marked.send = eSendPri2;
    const EditedRow edited(OrvanData::orvanMap[ODT_TEMP], marked);
    orvanx->scpi_cmds_pass(1, eSendPri2);
    EXPECT_EQ(module.requests().back(), ":SYSTem:TEMPerature? 0\r\n");
}

TEST_F(CommandPass, AnElementThatCannotBeRenderedIsPassedOver)
{
    OrvanElementData unknown = OrvanData::orvanMap[ODT_FREQ];
    unknown.type = static_cast<ValueTypes>(8);
    const EditedRow edited(OrvanData::orvanMap[ODT_FREQ], unknown);
    orvanx->scpi_cmds_pass(1, eSendPri1);
    const Requests sent = module.requests();
    EXPECT_EQ(sent.size(), std::size(kSentValues) - 1);
    EXPECT_EQ(std::count_if(sent.begin(), sent.end(),
                            [](const auto& request) { return request.starts_with(":FREQ"); }),
              0);
}

TEST_F(CommandPass, ACommandOf512BytesIsPassedOverAndOneOf511IsSent)
{
    const scpi_command_t* row = scpi_commands;
    while (row->tag != ODT_PWR)
        ++row;
    set(1, ODT_PWR, "5");
    for (const size_t length : {512u, 511u}) {
        const std::string pattern = ":" + std::string(length - std::strlen(": 5\r\n"), 'P');
        const EditedRow edited(*row, scpi_command_t{pattern.c_str(), row->callback, ODT_PWR});
        orvanx->scpi_cmds_pass(1, eSendPri1);
    }
    const Requests sent = module.requests();
    EXPECT_EQ(sent.size(), 2 * std::size(kSentValues) - 1);
    EXPECT_EQ(
        std::count_if(sent.begin(), sent.end(), [](const auto& request) { return request.size() == 511; }),
        1);
}

TEST_F(CommandPass, ATextThatFillsItsFieldGoesOutWhole)
{
    set(1, ODT_LIST_DEF, std::string(31, 'n'));
    orvanx->scpi_cmds_pass(1, eSendPri1);
    const Requests sent = module.requests();
    EXPECT_EQ(std::count(sent.begin(), sent.end(), ":LIST:DEFine " + std::string(31, 'n') + "\r\n"), 1);
}

// ---- into the records

class DatabaseSync : public SetupBench {
protected:
    DatabaseSync() : SetupBench(2) {}

    /** Fills the settings; none of the texts is as long as its field. */
    static EEPROM_DEVICE_SETTINGS& filled_settings()
    {
        EEPROM_DEVICE_SETTINGS& data = settings_in_memory();
        std::memset(&data, 0, sizeof data);
        std::strcpy(data.description, "Bench & Co.");
        std::strcpy(data.fwVersion, "02.3.004");
        std::strcpy(data.scpiRevision, "1999.0");
        std::strcpy(data.serialNum, "241107");
        data.minCwPow = -40;
        return data;
    }

    void expect_limit(int channel, const char* limit)
    {
        for (int tag : {ODT_PWR_MIN, ODT_LIST_PWR_MIN, ODT_PRS_START_MIN, ODT_PRS_STOP_MIN})
            EXPECT_EQ(text(channel, tag), limit) << tag;
    }

    int apply_options(std::string options)
    {
        EEPROM_DEVICE_SETTINGS data;
        return orvanx->apply_customer_options(1, &data, options.data(), options.size() + 1);
    }

    sDevArch_t arch = {"OVX5352B", 40'000'000'000, 2, 1, 0, 0, 0};
};

TEST_F(DatabaseSync, TheModelAndItsFrequencyLimitReachTheRecord)
{
    const ORVAN_CONFIG before = record(1);
    const ORVAN_CONFIG other = record(2);
    EXPECT_EQ(orvanx->apply_dev_arch(1, &arch), 0);
    EXPECT_EQ(changed(before, 1), (Elements{{ODT_FREQ_MAX, "40000000000"},
                                            {ODT_LIST_FREQ_MAX, "40000000000"},
                                            {ODT_FRS_START_MAX, "40000000000"},
                                            {ODT_FRS_STOP_MAX, "40000000000"},
                                            {ODT_INF_TYPE, "usb"},
                                            {ODT_INF_MODEL, "OVX5352B"}}));
    EXPECT_EQ(changed(other, 2), Elements{});
    EXPECT_EQ(logs.lines(), Lines{});
}

TEST_F(DatabaseSync, OnlyProtocolOneIsUsb)
{
    for (const auto& [protocol, type] : std::map<uint8_t, std::string>{{0, "spi"}, {1, "usb"}, {2, "spi"}}) {
        arch.protocol = protocol;
        EXPECT_EQ(orvanx->apply_dev_arch(1, &arch), 0);
        EXPECT_EQ(text(1, ODT_INF_TYPE), type);
    }
}

TEST_F(DatabaseSync, WithoutAModelNothingIsWritten)
{
    const ORVAN_CONFIG before = record(1);
    EXPECT_EQ(orvanx->apply_dev_arch(1, nullptr), -1);
    EXPECT_EQ(changed(before, 1), Elements{});
    EXPECT_EQ(logs.lines(), (Lines{{LOG_ERR, "invalid deviceArch input!"}}));
}

TEST_F(DatabaseSync, TheSettingsReachTheRecord)
{
    EEPROM_DEVICE_SETTINGS data = filled_settings();
    const ORVAN_CONFIG before = record(1);
    EXPECT_EQ(orvanx->apply_eeprom(1, &data), 0);
    EXPECT_EQ(changed(before, 1), (Elements{{ODT_MANUFACT, "Bench & Co."},
                                            {ODT_FIRM, "02.3.004"},
                                            {ODT_SCPI, "1999.0"},
                                            {ODT_INF_SERIAL, "241107"},
                                            {ODT_PWR_MIN, "-40"},
                                            {ODT_LIST_PWR_MIN, "-40"},
                                            {ODT_PRS_START_MIN, "-40"},
                                            {ODT_PRS_STOP_MIN, "-40"}}));
    EXPECT_EQ(logs.lines(), Lines{});
}

TEST_F(DatabaseSync, TheLastByteOfEachTextInTheSettingsIsLost)
{
    EEPROM_DEVICE_SETTINGS data;
    std::memset(&data, 'x', sizeof data);
    EXPECT_EQ(orvanx->apply_eeprom(2, &data), 0);
    const std::string kept(30, 'x');
    for (int tag : {ODT_MANUFACT, ODT_FIRM, ODT_SCPI, ODT_INF_SERIAL})
        EXPECT_EQ(text(2, tag), kept);
    for (const char* field : {data.description, data.fwVersion, data.scpiRevision, data.serialNum})
        EXPECT_EQ(field, kept);
    EXPECT_EQ(data.modelName[30], 'x') << "not one that is written";
}

TEST_F(DatabaseSync, WithoutSettingsNothingIsWritten)
{
    const ORVAN_CONFIG before = record(1);
    EXPECT_EQ(orvanx->apply_eeprom(1, nullptr), -1);
    EXPECT_EQ(changed(before, 1), Elements{});
    EXPECT_EQ(logs.lines(), (Lines{{LOG_ERR, "invalid input!"}}));
}

TEST_F(DatabaseSync, TheLowPowerOptionLowersFourLimits)
{
    const ORVAN_CONFIG before = record(1);
    EXPECT_EQ(apply_options("LP"), 0);
    EXPECT_EQ(changed(before, 1), (Elements{{ODT_OPT, "LP"},
                                            {ODT_PWR_MIN, "-80"},
                                            {ODT_LIST_PWR_MIN, "-80"},
                                            {ODT_PRS_START_MIN, "-80"},
                                            {ODT_PRS_STOP_MIN, "-80"}}));
    EXPECT_EQ(logs.lines(), (Lines{{LOG_INFO, "option LP applied"}}));
}

TEST_F(DatabaseSync, AnOptionIsAWordBetweenCommasBehindBlanks)
{
    const struct {
        const char* options;
        size_t applied;
    } cases[] = {
        {"LP", 1},     {" LP", 1},   {"   LP", 1},       {"XX, LP,YY", 1}, {"XX,LP", 1}, {"LP,XX", 1},
        {",,LP,,", 1}, {"LP,LP", 2}, {"20G,MOD, LP", 1}, {"LPX", 0},       {"lp", 0},    {"L", 0},
        {"LP ", 0},    {"L P", 0},   {"XLP", 0},         {"\tLP", 0},      {"XX LP", 0}, {"", 0},
        {",", 0},      {"   ", 0},   {"20G,MOD,BAT", 0},
    };
    for (const auto& [options, applied] : cases) {
        for (int tag : {ODT_PWR_MIN, ODT_LIST_PWR_MIN, ODT_PRS_START_MIN, ODT_PRS_STOP_MIN})
            set(1, tag, "-30");
        logs.clear();
        EXPECT_EQ(apply_options(options), 0) << options;
        EXPECT_EQ(logs.count(LOG_INFO, "option LP applied"), applied) << options;
        EXPECT_EQ(logs.lines().size(), applied) << options;
        SCOPED_TRACE(options);
        expect_limit(1, applied != 0 ? "-80" : "-30");
        EXPECT_EQ(text(1, ODT_OPT), options);
    }
}

TEST_F(DatabaseSync, TheOptionTextEndsAtItsSize)
{
    EEPROM_DEVICE_SETTINGS data;
    char options[] = "LPX";
    EXPECT_EQ(orvanx->apply_customer_options(1, &data, options, 3), 0);
    EXPECT_STREQ(options, "LP");
    EXPECT_EQ(text(1, ODT_OPT), "LP");
    EXPECT_EQ(logs.count(LOG_INFO, "option LP applied"), 1u);
    char full[32];
    std::memset(full, 'o', sizeof full);
    EXPECT_EQ(orvanx->apply_customer_options(1, &data, full, sizeof full), 0);
    EXPECT_EQ(text(1, ODT_OPT), std::string(31, 'o'));
}

TEST_F(DatabaseSync, OptionsWithAnythingMissingAreRefused)
{
    EEPROM_DEVICE_SETTINGS data;
    char options[32] = "LP";
    const ORVAN_CONFIG before = record(1);
    EXPECT_EQ(orvanx->apply_customer_options(1, nullptr, options, sizeof options), -1);
    EXPECT_EQ(orvanx->apply_customer_options(1, &data, nullptr, sizeof options), -1);
    EXPECT_EQ(orvanx->apply_customer_options(1, &data, options, 0), -1);
    EXPECT_EQ(orvanx->apply_customer_options(5, &data, options, sizeof options), -1);
    EXPECT_EQ(changed(before, 1), Elements{});
    EXPECT_EQ(logs.lines(), Lines(4, {LOG_ERR, "invalid input!"}));
}

TEST_F(DatabaseSync, TheBatteryReachesEveryRecord)
{
    const ORVAN_CONFIG before = record(2);
    orvanx->update_battery_status(87, -3);
    EXPECT_EQ(changed(before, 2), (Elements{{ODT_BATT, "87"}, {ODT_CURRENT_STATUS, "-3"}}));
    EXPECT_EQ(text(1, ODT_BATT), "87");
    orvanx->update_battery_status(-1, 0);
    for (int channel = 1; channel <= 2; ++channel) {
        EXPECT_EQ(text(channel, ODT_BATT), "-1");
        EXPECT_EQ(text(channel, ODT_CURRENT_STATUS), "0");
    }
    EXPECT_EQ(logs.lines(), Lines{});
}

TEST_F(DatabaseSync, TheBatteryReachesInstalledChannelsOnly)
{
    const ORVAN_CONFIG before = record(2);
    orvanx->setNumberofChannels(1);
    orvanx->update_battery_status(50, 1);
    orvanx->setNumberofChannels(2); // as many as there are records to be unmapped
    EXPECT_EQ(text(1, ODT_BATT), "50");
    EXPECT_EQ(changed(before, 2), Elements{});
}

TEST_F(FrontEndBench, WithoutRecordsTheBatteryHasNowhereToGo)
{
    orvanx->setNumberofChannels(4);
    logs.clear();
    orvanx->update_battery_status(50, 1);
    EXPECT_EQ(logs.lines(), Lines{});
}

// ---- all of it

/** What a platform adds, and an option text. */
class Device : public IOrvanDeviceManager {
public:
    bool Initialized() override { return true; }
    bool InitHW() override { return true; }
    bool Connected() override { return false; }
    int GetHardware(uint8_t*) override { return 0; }
    int GetOption(uint8_t* value, size_t size) override
    {
        ++asked;
        asked_for = size;
        std::memcpy(value, text, size);
        return 0;
    }
    int GetOptionsTable(void**, size_t*) override { return 0; }
    bool SetupPowerButtonIrq(void (*)()) override { return true; }
    void WaitPowerButtonRelease() override {}
    int detectDevicePin() const override { return 0; }
    void RunKbdServer() override {}
    int bit_register() override { return 0; }

    char text[64] = {};
    int asked = 0;
    size_t asked_for = 0;
};

class SyncWithDevice : public DatabaseSync {
protected:
    SyncWithDevice() { orvanx->setDevicePtr(static_cast<IOrvanDeviceManager*>(&device)); }
    ~SyncWithDevice() override { orvanx->setDevicePtr(nullptr); }

    Device device;
};

TEST_F(SyncWithDevice, EveryRecordGetsModelSettingsAndOptions)
{
    filled_settings();
    std::strcpy(device.text, "40G,MOD");
    orvanx->sync_db_to_orvanx(&arch);
    EXPECT_EQ(device.asked, 1);
    EXPECT_EQ(device.asked_for, 32u);
    for (int channel = 1; channel <= 2; ++channel) {
        EXPECT_EQ(text(channel, ODT_INF_MODEL), "OVX5352B");
        EXPECT_EQ(text(channel, ODT_FREQ_MAX), "40000000000");
        EXPECT_EQ(text(channel, ODT_INF_SERIAL), "241107");
        EXPECT_EQ(text(channel, ODT_OPT), "40G,MOD");
        expect_limit(channel, "-40");
    }
    EXPECT_EQ(module.connections(), 0u) << "nothing is sent";
    EXPECT_EQ(logs.lines(), Lines{});
}

TEST_F(SyncWithDevice, TheOptionsOverruleTheSettings)
{
    filled_settings();
    std::strcpy(device.text, "40G,LP");
    orvanx->sync_db_to_orvanx(&arch);
    for (int channel = 1; channel <= 2; ++channel)
        expect_limit(channel, "-80");
    EXPECT_EQ(logs.lines(), Lines(2, {LOG_INFO, "option LP applied"}));
}

TEST_F(SyncWithDevice, AnOptionTextWithoutAnEndIsCut)
{
    filled_settings();
    std::memset(device.text, 'o', sizeof device.text);
    orvanx->sync_db_to_orvanx(&arch);
    EXPECT_EQ(text(2, ODT_OPT), std::string(31, 'o'));
}

TEST_F(SyncWithDevice, WithoutAModelTheRestIsWritten)
{
    filled_settings();
    std::strcpy(device.text, "LP");
    orvanx->sync_db_to_orvanx(nullptr);
    EXPECT_EQ(text(2, ODT_INF_MODEL), "");
    EXPECT_EQ(text(2, ODT_INF_SERIAL), "241107");
    expect_limit(2, "-80");
    EXPECT_EQ(logs.count(LOG_ERR, "invalid deviceArch input!"), 2u);
}

TEST_F(SyncWithDevice, WithoutSettingsTheModelIsWritten)
{
    std::strcpy(device.text, "LP");
    ASSERT_EQ(HaldeElec::Orvan::CPersistentData::GetInstance(), nullptr);
    orvanx->sync_db_to_orvanx(&arch);
    EXPECT_EQ(text(2, ODT_INF_MODEL), "OVX5352B");
    EXPECT_EQ(text(2, ODT_OPT), "");
    EXPECT_EQ(logs.lines(), Lines(4, {LOG_ERR, "invalid input!"}));
}

TEST_F(DatabaseSync, WithoutADeviceThereAreNoOptions)
{
    filled_settings();
    set(1, ODT_OPT, "LP");
    orvanx->sync_db_to_orvanx(&arch);
    EXPECT_EQ(text(1, ODT_OPT), "");
    expect_limit(1, "-40");
}

TEST_F(DatabaseSync, ARecallPutsTheFilesValuesInTheirPlace)
{
    filled_settings();
    orvanx->sync_db_to_orvanx(&arch);
    ASSERT_EQ(orvanx->database_store(1), 0);
    arch.model = "OVX3652B";
    arch.maxFrequency = 20'000'000'000;
    orvanx->sync_db_to_orvanx(&arch);
    EXPECT_EQ(orvanx->database_recall(1), 0);
    EXPECT_EQ(text(1, ODT_INF_MODEL), "OVX5352B");
    EXPECT_EQ(text(1, ODT_FREQ_MAX), "40000000000");
}

} // namespace
