#include <set>

#include <gtest/gtest.h>

#include "instrument/channel_queries.h"
#include "instrument/channel_settings.h"

using namespace orvan_web;

namespace {

const ChannelSetting& at(const char* path)
{
    return channel_settings()[setting_at(path).value()];
}

ORVAN_CONFIG factory_record()
{
    ORVAN_CONFIG record{};
    EXPECT_EQ(OrvanData().init_cmd_config(ORVAN_FACTORY_SETUP, &record), 0);
    return record;
}

} // namespace

TEST(Settings, TableIsConsistent)
{
    std::set<std::string> paths;
    std::set<int> tags;
    for (const ChannelSetting& setting : channel_settings()) {
        EXPECT_TRUE(paths.insert(setting.path).second) << setting.path;
        EXPECT_TRUE(tags.insert(setting.tag).second) << setting.path;
        EXPECT_EQ(setting.choices != nullptr, setting.kind == SettingKind::kChoice) << setting.path;
        EXPECT_EQ(setting.min == ODT_NO_TAG, setting.max == ODT_NO_TAG) << setting.path;
        const bool is_switch = OrvanData::orvanMap[setting.tag].type == TYPE_BOOL;
        EXPECT_EQ(is_switch, setting.kind == SettingKind::kSwitch) << setting.path;
    }
    EXPECT_FALSE(at("rf_output").asked); // its query switches the output path
}

TEST(Settings, FactoryRecordHasAValueForEachAndLimitsForNumbers)
{
    const ORVAN_CONFIG record = factory_record();
    for (const ChannelSetting& setting : channel_settings()) {
        EXPECT_NE(value_of_record(setting, record), SettingValue()) << setting.path;
        const bool has = has_limits(setting) && setting.tag != ODT_REF_OSC_FREQ;
        EXPECT_EQ(limits_of_record(setting, record).has_value(), has) << setting.path;
    }
    EXPECT_EQ(value_of_record(at("frequency_hz"), record), SettingValue(1e9));
    EXPECT_EQ(limits_of_record(at("frequency_hz"), record), (SettingLimits{50e3, 20e9}));
    EXPECT_EQ(value_of_record(at("am/source"), record), SettingValue("INT"));
    EXPECT_EQ(value_of_record(at("frequency_sweep/direction"), record), SettingValue("NORM"));
    EXPECT_EQ(value_of_record(at("reference/frequency_hz"), record), SettingValue(1e7)); // "10MHz"
}

TEST(Settings, ValuesOfReplies)
{
    EXPECT_EQ(value_of_reply(at("frequency_hz"), "2500000000"), SettingValue(2.5e9));
    EXPECT_EQ(value_of_reply(at("pulse/width_s"), "5.0E-06"), SettingValue(5e-6));
    EXPECT_EQ(value_of_reply(at("frequency_hz"), "2.5 GHz"), SettingValue());
    EXPECT_EQ(value_of_reply(at("frequency_hz"), "nan"), SettingValue());
    EXPECT_EQ(value_of_reply(at("am/enabled"), "1"), SettingValue(true));
    EXPECT_EQ(value_of_reply(at("am/enabled"), "OFF"), SettingValue(false));
    EXPECT_EQ(value_of_reply(at("am/enabled"), "maybe"), SettingValue());
    EXPECT_EQ(value_of_reply(at("trigger/source"), "external"), SettingValue("EXT"));
    EXPECT_EQ(value_of_reply(at("trigger/source"), "EXTE"), SettingValue());
    EXPECT_EQ(value_of_reply(at("list/definition"), "\"RAMP\""), SettingValue("RAMP"));
}

TEST(Settings, ParametersKeepWhatTheModuleUnderstands)
{
    using Parameter = std::optional<std::string>;
    EXPECT_EQ(parameter_of(at("frequency_hz"), " 2.5 GHz "), Parameter("2.5 GHz"));
    EXPECT_EQ(parameter_of(at("level_dbm"), "-10 dBm"), Parameter("-10 dBm"));
    EXPECT_EQ(parameter_of(at("level_dbm"), "\u221210"), Parameter("-10")); // a typographic minus
    EXPECT_EQ(parameter_of(at("pulse/width_s"), "10 \u00b5s"), Parameter("10 Us"));
    EXPECT_EQ(parameter_of(at("am/depth_percent"), "30 %"), Parameter("30 PCT"));
    EXPECT_EQ(parameter_of(at("frequency_hz"), "max"), Parameter("max"));
    EXPECT_EQ(parameter_of(at("am/enabled"), "On"), Parameter("ON"));
    EXPECT_EQ(parameter_of(at("am/enabled"), "false"), Parameter("OFF"));
    EXPECT_EQ(parameter_of(at("trigger/source"), "timer"), Parameter("TIM"));
    EXPECT_EQ(parameter_of(at("list/definition"), "Ramp 7"), Parameter("\"Ramp 7\""));
    EXPECT_EQ(choices_of(at("trigger/source")), (std::vector<std::string>{"EXT", "BUS", "TIM", "SPI"}));
}

TEST(Settings, ParametersCannotBeAnythingElse)
{
    for (const char* text :
         {"1;:OUTP ON", "1\n:OUTP ON", "1,2", "\"1\"", "#13abc", "", "1:2", "1?", "\xff"}) {
        EXPECT_EQ(parameter_of(at("frequency_hz"), text), std::nullopt) << text;
    }
    for (const char* text : {"ON;*RST", "2", "", "perhaps"}) {
        EXPECT_EQ(parameter_of(at("am/enabled"), text), std::nullopt) << text;
        EXPECT_EQ(parameter_of(at("am/source"), text), std::nullopt) << text;
    }
    for (const char* text :
         {"a\";*RST;\"", "a'b", "a;b", "a\nb", "t\u00e9st", "12345678901234567890123456789012"}) {
        EXPECT_EQ(parameter_of(at("list/definition"), text), std::nullopt) << text;
    }
}

TEST(Settings, RecordShowsAReplyAsTheServiceStoresIt)
{
    ORVAN_CONFIG record = factory_record();
    EXPECT_TRUE(record_shows(at("frequency_hz"), record, "1000000000"));
    EXPECT_FALSE(record_shows(at("frequency_hz"), record, "1000000001"));
    EXPECT_TRUE(record_shows(at("frequency_hz"), record, "1.0E+09"));
    record.RUNMODE.TriggerCount = 1;
    EXPECT_TRUE(record_shows(at("trigger/count"), record, "1E3")); // only the digits of an integer
    EXPECT_FALSE(record_shows(at("am/enabled"), record, "1"));
    EXPECT_TRUE(record_shows(at("am/enabled"), record, "2"));
    EXPECT_TRUE(record_shows(at("am/source"), record, "INTernal"));
    EXPECT_FALSE(record_shows(at("am/source"), record, "INT"));
}

TEST(Settings, QueriesNeverIncludeOnesWithSideEffects)
{
    ASSERT_GT(value_queries(), 40U);
    for (const ChannelQuery& query : channel_queries()) {
        const std::string text = query_text(query);
        EXPECT_FALSE(text.starts_with(":OUTP")) << text;
        EXPECT_EQ(text.find(":ERR"), std::string::npos) << text;
        EXPECT_NE(text.find('?'), std::string::npos) << text;
    }
    EXPECT_EQ(query_text(channel_queries()[*query_for(*setting_at("level_dbm"), ChannelQuery::Of::kMax)]),
              ":POW? MAX");
    EXPECT_EQ(query_for(*setting_at("rf_output"), ChannelQuery::Of::kValue), std::nullopt);
}
