// The limits of an instrument are kept in three places: in its modules, in its channel records and in its
// settings.
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>

#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include "orvan_db.h"
#include "stored_settings.h"

using namespace orvan_test;

namespace {

struct Row {
    const char* header;
    const char* tag; /**< element of the record, without "_MIN" and "_MAX" */
};

// clang-format off
constexpr Row kRows[] = {
    {":TRIG:COUN",     "ODT_TRG_COUNT"},
    {":TRIG:DEL",      "ODT_TRG_DELAY"},
    {":TRIG:TIM:TIME", "ODT_TRG_TIMER_TIME"},
    {":FREQ",          "ODT_FREQ"},
    {":FREQ",          "ODT_LIST_FREQ"},
    {":POW",           "ODT_PWR"},
    {":POW",           "ODT_LIST_PWR"},
    {":PHAS",          "ODT_PHASE"},
    {":LIST:STAR",     "ODT_LIST_STEPS"},
    {":AM:INT:FREQ",   "ODT_AM_FREQ"},
    {":AM:DEPT",       "ODT_AM_DEPT"},
    {":FM:INT:FREQ",   "ODT_FM_FREQ"},
    {":FM:DEV",        "ODT_FM_DEV"},
    {":PM:INT:FREQ",   "ODT_PM_FREQ"},
    {":PM:DEV",        "ODT_PM_DEV"},
    {":PULS:FREQ",     "ODT_PULS_FREQ"},
    {":PULS:WIDT",     "ODT_PULS_WIDTH"},
    {":FRSW:STAR",     "ODT_FRS_START"},
    {":FRSW:STEP",     "ODT_FRS_STEPS"},
    {":FRSW:STOP",     "ODT_FRS_STOP"},
    {":FRSW:TIME",     "ODT_FRS_STEP_TIME"},
    {":PRSW:STAR",     "ODT_PRS_START"},
    {":PRSW:STEP",     "ODT_PRS_STEPS"},
    {":PRSW:STOP",     "ODT_PRS_STOP"},
    {":PRSW:TIME",     "ODT_PRS_STEP_TIME"},
};
// clang-format on

/** The numbers of the first channel's record by their tags. */
std::map<std::string, double> record_of(const Instrument& instrument)
{
    const std::string text = orvan_db(instrument, {"--json", "--channel", "1"}).output;
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> json(cJSON_Parse(text.c_str()), cJSON_Delete);
    const cJSON* const channels = cJSON_GetObjectItem(json.get(), "channels");
    std::map<std::string, double> numbers;
    const cJSON* element = nullptr;
    cJSON_ArrayForEach(element, cJSON_GetArrayItem(channels, 0))
    {
        if (cJSON_IsNumber(element)) {
            numbers[element->string] = element->valuedouble;
        }
    }
    return numbers;
}

SettingsRecord settings_of(const Instrument& instrument)
{
    const SettingsImage image = read_eeprom(instrument.state());
    SettingsRecord record;
    std::memcpy(&record, image.data(), sizeof record);
    return record;
}

class Limits : public testing::TestWithParam<const char*> {};

} // namespace

TEST_P(Limits, AreTheSameInModulesRecordsAndSettings)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({"--model", GetParam()});
    // Bypasses the controller, which would mirror a limit as the setting.
    const auto ask = [&](const std::string& query) {
        return std::strtod(instrument.ask_module(1, query).c_str(), nullptr);
    };
    const std::map<std::string, double> record = record_of(instrument);
    for (const Row& row : kRows) {
        const std::string header = row.header;
        const std::string tag = row.tag;
        EXPECT_EQ(ask(header + "? MIN"), record.at(tag + "_MIN")) << header << " and " << tag;
        EXPECT_EQ(ask(header + "? MAX"), record.at(tag + "_MAX")) << header << " and " << tag;
    }

    const SettingsRecord settings = settings_of(instrument);
    const bool low_power = instrument.client().ask("*OPT?").find(",LP") != std::string::npos;
    EXPECT_EQ(ask(":FREQ? MIN"), static_cast<double>(settings.minCwFreq));
    EXPECT_EQ(ask(":FREQ? MAX"), static_cast<double>(settings.maxCwFreq));
    EXPECT_EQ(ask(":FREQ? DEF"), static_cast<double>(settings.defCwFreq));
    EXPECT_EQ(ask(":POW? MIN"), low_power ? -80 : settings.minCwPow);
    EXPECT_EQ(ask(":POW? MAX"), settings.maxCwPow);
    EXPECT_EQ(ask(":POW? DEF"), settings.defCwPow);
}

INSTANTIATE_TEST_SUITE_P(EachPlatform, Limits, testing::Values("OVX5352B", "OVX6131P", "KSR-7036"));
