// Copying what only the controller knows into the records.
#include "orvan_sdk/IOrvanDeviceManager.h"
#include "setup_bench.h"

using namespace orvan_test;
using HaldeElec::Orvan::EEPROM_DEVICE_SETTINGS;
using HaldeElec::Orvan::IOrvanDeviceManager;
using HaldeElec::Orvan::sDevArch_t;

namespace {

using Lines = std::vector<LogLine>;

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
        for (int tag : {ODT_PWR_MIN, ODT_LIST_PWR_MIN, ODT_PRS_START_MIN, ODT_PRS_STOP_MIN}) {
            EXPECT_EQ(text(channel, tag), limit) << tag;
        }
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
    for (int tag : {ODT_MANUFACT, ODT_FIRM, ODT_SCPI, ODT_INF_SERIAL}) {
        EXPECT_EQ(text(2, tag), kept);
    }
    for (const char* field : {data.description, data.fwVersion, data.scpiRevision, data.serialNum}) {
        EXPECT_EQ(field, kept);
    }
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

TEST_F(DatabaseSync, AnOptionIsAWordBetweenCommasAfterBlanks)
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
        for (int tag : {ODT_PWR_MIN, ODT_LIST_PWR_MIN, ODT_PRS_START_MIN, ODT_PRS_STOP_MIN}) {
            set(1, tag, "-30");
        }
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
    orvanx->setNumberofChannels(2); // as many as the records to be unmapped
    EXPECT_EQ(text(1, ODT_BATT), "50");
    EXPECT_EQ(changed(before, 2), Elements{});
}

TEST_F(FrontEndBench, WithoutRecordsTheBatteryIsNotStored)
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

TEST_F(SyncWithDevice, TheOptionsOverrideTheSettings)
{
    filled_settings();
    std::strcpy(device.text, "40G,LP");
    orvanx->sync_db_to_orvanx(&arch);
    for (int channel = 1; channel <= 2; ++channel) {
        expect_limit(channel, "-80");
    }
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

TEST_F(DatabaseSync, ARecallReplacesThemByTheFilesValues)
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
