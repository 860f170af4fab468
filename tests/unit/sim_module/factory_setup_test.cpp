// A module's ranges and its values after "*RST" are those of the factory setup.

#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <string>

#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include "module/data_tables.h"
#include "module/settings.h"
#include "module/settings_table.h"

using namespace sim_module;

namespace {

/** A model with the frequencies of the setup and without an option that changes a limit. */
constexpr const char* kModel = "OVX3651P";

struct SettingRow {
    const char* pattern;
    const char* section;
    const char* field; /**< its limits have "Min" and "Max" after this */
};

struct ColumnRow {
    TableKind kind;
    size_t column;
    const char* section;
    const char* field;
};

// clang-format off
constexpr SettingRow kSettingRows[] = {
    {":TRIGger:COUNt",                  "RUNMODE",      "TriggerCount"},
    {":TRIGger:DELay",                  "RUNMODE",      "TriggerDelay"},
    {":TRIGger:TIMer:TIME",             "RUNMODE",      "TriggerTimerTime"},
    {"[:SOURce]:FREQuency",             "ANALOGOUTPUT", "Frequency"},
    {"[:SOURce]:POWer",                 "ANALOGOUTPUT", "Power"},
    {"[:SOURce]:PHASe",                 "ANALOGOUTPUT", "Phase"},
    {"[:SOURce]:LIST:STARt",            "LIST",         "ListSteps"},
    {"[:SOURce]:AM:INTernal:FREQuency", "MODULATIONS",  "AMModFreq"},
    {"[:SOURce]:AM:DEPTh",              "MODULATIONS",  "AMModeDepth"},
    {"[:SOURce]:FM:INTernal:FREQuency", "MODULATIONS",  "FMModFreq"},
    {"[:SOURce]:FM:DEViation",          "MODULATIONS",  "FMModeDev"},
    {"[:SOURce]:PM:INTernal:FREQuency", "MODULATIONS",  "PMModFreq"},
    {"[:SOURce]:PM:DEViation",          "MODULATIONS",  "PMModeDev"},
    {"[:SOURce]:PULSe:FREQuency",       "MODULATIONS",  "PulseMModFreq"},
    {"[:SOURce]:PULSe:WIDTh",           "MODULATIONS",  "PulseMModeWidth"},
    {"[:SOURce]:FRSWeep:STARt",         "MODULATIONS",  "FRSWeepStart"},
    {"[:SOURce]:FRSWeep:STEPs",         "MODULATIONS",  "FRSWeepSteps"},
    {"[:SOURce]:FRSWeep:STOP",          "MODULATIONS",  "FRSWeepStop"},
    {"[:SOURce]:FRSWeep:TIME",          "MODULATIONS",  "FRSWeepStepTime"},
    {"[:SOURce]:PRSWeep:STARt",         "MODULATIONS",  "PRSWeepStart"},
    {"[:SOURce]:PRSWeep:STEPs",         "MODULATIONS",  "PRSWeepSteps"},
    {"[:SOURce]:PRSWeep:STOP",          "MODULATIONS",  "PRSWeepStop"},
    {"[:SOURce]:PRSWeep:TIME",          "MODULATIONS",  "PRSWeepStepTime"},
};

constexpr ColumnRow kColumnRows[] = {
    {TableKind::kList,           0,     "LIST",         "ListFrequency"},
    {TableKind::kList,           1,     "LIST",         "ListPower"},
    {TableKind::kList,           2,     "LIST",         "ListDwellTime"},
    {TableKind::kPattern,        0,     "LIST",         "PatternTime"},
    {TableKind::kPattern,        1,     "LIST",         "PatternTime"},
    {TableKind::kUserCorrection, 0,     "ANALOGOUTPUT", "Frequency"},
};
// clang-format on

/** Limits of a number of rows, not of a quantity. */
constexpr const char* kPatternRows = "PatternSteps";

class FactorySetup : public testing::Test {
protected:
    FactorySetup()
    {
        std::ifstream file(ORVAN_FACTORY_SETUP);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        m_setup.reset(cJSON_Parse(text.c_str()));
    }

    double number(const char* section, const std::string& field) const
    {
        const cJSON* const value = find(section, field);
        EXPECT_TRUE(cJSON_IsNumber(value)) << section << "." << field;
        return cJSON_IsNumber(value) ? value->valuedouble : 0;
    }

    void expect_limits(const Range& range, const char* section, const std::string& field) const
    {
        const Range resolved = settings.resolve(range);
        EXPECT_EQ(resolved.minimum, number(section, field + "Min")) << section << "." << field;
        EXPECT_EQ(resolved.maximum, number(section, field + "Max")) << section << "." << field;
    }

    const cJSON* find(const char* section, const std::string& field) const
    {
        return cJSON_GetObjectItemCaseSensitive(cJSON_GetObjectItemCaseSensitive(m_setup.get(), section),
                                                field.c_str());
    }

    const cJSON* setup() const { return m_setup.get(); }

    const Settings settings{*model_limits(kModel)};

private:
    std::unique_ptr<cJSON, decltype(&cJSON_Delete)> m_setup{nullptr, cJSON_Delete};
};

TEST_F(FactorySetup, HasTheLimitsOfEveryModuleSetting)
{
    for (const SettingRow& row : kSettingRows) {
        expect_limits(settings_table()[setting_index(row.pattern)].range, row.section, row.field);
    }
}

TEST_F(FactorySetup, HasTheValuesOfAResetModule)
{
    for (const SettingRow& row : kSettingRows) {
        const bool has_value = find(row.section, row.field) != nullptr;
        const std::string field = has_value ? row.field : std::string(row.field) + "Def";
        EXPECT_EQ(settings_table()[setting_index(row.pattern)].initial, number(row.section, field))
            << row.pattern;
    }
}

TEST_F(FactorySetup, HasTheLimitsOfEveryColumnOfAModulesTables)
{
    for (const ColumnRow& row : kColumnRows) {
        expect_limits(table_shape(row.kind).columns[row.column], row.section, row.field);
    }
    EXPECT_EQ(static_cast<double>(table_shape(TableKind::kList).max_rows), number("LIST", "ListStepsMax"));
    EXPECT_EQ(static_cast<double>(table_shape(TableKind::kPattern).max_rows),
              number("LIST", std::string(kPatternRows) + "Max"));
}

TEST_F(FactorySetup, HasOnlyTheModulesLimits)
{
    std::set<std::string> expected{kPatternRows};
    for (const SettingRow& row : kSettingRows) {
        expected.insert(row.field);
    }
    for (const ColumnRow& row : kColumnRows) {
        expected.insert(row.field);
    }
    std::set<std::string> present;
    const cJSON* section = nullptr;
    cJSON_ArrayForEach(section, setup())
    {
        const cJSON* field = nullptr;
        cJSON_ArrayForEach(field, section)
        {
            const std::string name = field->string;
            if (name.ends_with("Min") || name.ends_with("Max")) {
                present.insert(name.substr(0, name.size() - 3));
            }
        }
    }
    EXPECT_EQ(present, expected);
}

TEST_F(FactorySetup, EveryModuleSettingInASetupIsCompared)
{
    // Two frequencies that are not a range, and a number private to the module.
    std::set<std::string> compared{"[:SOURce]:ROSCillator:OUTP:FREQuency", ":SYSTem:SETup:TARGet"};
    for (const SettingRow& row : kSettingRows) {
        compared.insert(row.pattern);
    }
    for (const Setting& setting : settings_table()) {
        if (setting.form == SettingForm::kNumber || setting.form == SettingForm::kInteger) {
            EXPECT_TRUE(compared.contains(setting.pattern)) << setting.pattern;
        }
    }
}

} // namespace
