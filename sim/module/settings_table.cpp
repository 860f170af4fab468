#include "settings_table.h"

#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "data_tables.h"

namespace sim_module {

namespace {

constexpr scpi_choice_def_t kTriggerSources[] = {
    {"EXTernal", 1}, {"BUS", kTriggerBus}, {"TIMer", 3}, {"SPI", 4}, {nullptr, -1}};
constexpr scpi_choice_def_t kEdges[] = {{"POSitive", 0}, {"NEGative", 1}, {nullptr, -1}};
constexpr scpi_choice_def_t kAdvances[] = {{"ONCe", 0}, {"STEP", 1}, {nullptr, -1}};
constexpr scpi_choice_def_t kSources[] = {{"INTernal", 1}, {"EXTernal", 2}, {nullptr, -1}};
constexpr scpi_choice_def_t kListDirections[] = {{"UP", 0}, {"DOWN", 1}, {nullptr, -1}};
constexpr scpi_choice_def_t kSweepDirections[] = {{"NORMal", 0}, {"UPDown", 1}, {nullptr, -1}};
constexpr scpi_choice_def_t kFlatnessModes[] = {{"LINear", 0}, {"STEP", 1}, {nullptr, -1}};

constexpr double kReferenceOutputs[] = {10e6, 100e6}; // Hz

constexpr Setting number(const char* pattern, const Range& range, double initial)
{
    return {pattern, SettingRows::kSetAndQuery, SettingForm::kNumber, range, initial, nullptr, {}};
}

constexpr Setting number(const char* pattern, scpi_unit_t unit, double minimum, double maximum,
                         double initial)
{
    return number(pattern, {unit, minimum, maximum}, initial);
}

constexpr Setting integer(const char* pattern, double minimum, double maximum, double initial)
{
    return {pattern,
            SettingRows::kSetAndQuery,
            SettingForm::kInteger,
            {SCPI_UNIT_NONE, minimum, maximum},
            initial,
            nullptr,
            {}};
}

constexpr Setting boolean(const char* pattern, bool initial)
{
    return {pattern,
            SettingRows::kSetAndQuery,
            SettingForm::kBoolean,
            {SCPI_UNIT_NONE, 0, 1},
            initial ? 1.0 : 0.0,
            nullptr,
            {}};
}

constexpr Setting choice(const char* pattern, const scpi_choice_def_t* choices, int initial)
{
    return {pattern,
            SettingRows::kSetAndQuery,
            SettingForm::kChoice,
            {SCPI_UNIT_NONE, 0, 0},
            static_cast<double>(initial),
            choices,
            {}};
}

constexpr Setting text(const char* pattern)
{
    return {pattern, SettingRows::kSetAndQuery, SettingForm::kText, {SCPI_UNIT_NONE, 0, 0}, 0, nullptr, {}};
}

constexpr Setting one_of(const char* pattern, scpi_unit_t unit, std::span<const double> allowed)
{
    return {pattern,
            SettingRows::kSetAndQuery,
            SettingForm::kNumber,
            {unit, allowed.front(), allowed.back()},
            allowed.front(),
            nullptr,
            allowed};
}

constexpr Setting set_only(Setting setting)
{
    setting.rows = SettingRows::kSetOnly;
    return setting;
}

constexpr Setting query_only(Setting setting)
{
    setting.rows = SettingRows::kQueryOnly;
    return setting;
}

constexpr scpi_unit_t HZ = SCPI_UNIT_HERTZ;
constexpr scpi_unit_t S = SCPI_UNIT_SECOND;
constexpr scpi_unit_t DEG = SCPI_UNIT_DEGREE;
constexpr scpi_unit_t RAD = SCPI_UNIT_RADIAN;
constexpr scpi_unit_t PCT = SCPI_UNIT_PERCENT;

// clang-format off
constexpr std::array kSettings = {
    //      pattern                                      unit  minimum  maximum         after *RST
    boolean(":INITiate:CONTinuous[:STATe]",                                             true),
    boolean(":INITiate:GATE[:STATe]",                                                   false),

    choice (":TRIGger:SOURce",                           kTriggerSources,               1),
    choice (":TRIGger:EDGe",                             kEdges,                        0),
    choice (":TRIGger:ADVance",                          kAdvances,                     0),
    integer(":TRIGger:COUNt",                                  1,       1e6,            1),
    number (":TRIGger:DELay",                            S,    0,       10,             0),
    number (":TRIGger:TIMer:TIME",                       S,    1e-6,    1000,           1e-3),

    boolean(":OUTPut[:STATe]",                                                          false),
    number ("[:SOURce]:FREQuency",                       kFrequencyRange,               1e9),
    number ("[:SOURce]:POWer",                           kPowerRange,                   5),
    number ("[:SOURce]:PHASe",                           DEG,  0,       360,            0),
    query_only(choice("[:SOURce]:ROSCillator:SOURce",    kSources,                      1)),
    one_of ("[:SOURce]:ROSCillator:OUTP:FREQuency",      HZ,   kReferenceOutputs),

    boolean("[:SOURce]:LIST[:STATe]",                                                   false),
    integer("[:SOURce]:LIST:STARt",                            1,       kMaxListRows,   1),
    choice ("[:SOURce]:LIST:DIRection",                  kListDirections,               0),

    boolean("[:SOURce]:AM[:STATe]",                                                     false),
    choice ("[:SOURce]:AM:SOURce",                       kSources,                      1),
    number ("[:SOURce]:AM:INTernal:FREQuency",           HZ,   0.1,     100e3,          1e3),
    number ("[:SOURce]:AM:DEPTh",                        PCT,  0,       90,             30),

    boolean("[:SOURce]:FM[:STATe]",                                                     false),
    choice ("[:SOURce]:FM:SOURce",                       kSources,                      1),
    number ("[:SOURce]:FM:INTernal:FREQuency",           HZ,   0.1,     100e3,          1e3),
    number ("[:SOURce]:FM:DEViation",                    HZ,   0,       10e6,           100e3),

    boolean("[:SOURce]:PM[:STATe]",                                                     false),
    number ("[:SOURce]:PM:INTernal:FREQuency",           HZ,   0.1,     100e3,          1e3),
    number ("[:SOURce]:PM:DEViation",                    RAD,  0,       100,            1),

    boolean("[:SOURce]:PULSe[:STATe]",                                                  false),
    choice ("[:SOURce]:PULSe:SOURce",                    kSources,                      1),
    number ("[:SOURce]:PULSe:FREQuency",                 HZ,   0.1,     1e6,            1e3),
    number ("[:SOURce]:PULSe:WIDTh",                     S,    50e-9,   10,             100e-6),

    boolean("[:SOURce]:PATTern[:STATe]",                                                false),

    boolean("[:SOURce]:FRSWeep[:STATe]",                                                false),
    number ("[:SOURce]:FRSWeep:STARt",                   kFrequencyRange,               1e9),
    integer("[:SOURce]:FRSWeep:STEPs",                         2,       65535,          101),
    number ("[:SOURce]:FRSWeep:STOP",                    kFrequencyRange,               2e9),
    number ("[:SOURce]:FRSWeep:TIME",                    kStepTimeRange,                1e-3),
    choice ("[:SOURce]:FRSWeep:DIRection",               kSweepDirections,              0),

    boolean("[:SOURce]:PRSWeep[:STATe]",                                                false),
    number ("[:SOURce]:PRSWeep:STARt",                   kPowerRange,                   -10),
    integer("[:SOURce]:PRSWeep:STEPs",                         2,       65535,          21),
    number ("[:SOURce]:PRSWeep:STOP",                    kPowerRange,                   10),
    number ("[:SOURce]:PRSWeep:TIME",                    kStepTimeRange,                1e-3),
    choice ("[:SOURce]:PRSWeep:DIRection",               kSweepDirections,              0),

    boolean("[:SOURce]:CORRection:FLATness[:STATe]",                                    false),
    set_only(choice("[:SOURce]:CORRection:FLATness:MODE", kFlatnessModes,               0)),

    integer(":SYSTem:SETup:TARGet",                            1,       5,              1),
    text   (":SYSTem:EMULator:MODel"),
    set_only(boolean(":SYSTem:LOG[:STATe]",                                             false)),
};
// clang-format on

} // namespace

std::span<const Setting> settings_table()
{
    return kSettings;
}

size_t setting_index(const char* pattern)
{
    for (size_t i = 0; i < kSettings.size(); ++i) {
        if (std::strcmp(kSettings[i].pattern, pattern) == 0) {
            return i;
        }
    }
    std::abort();
}

} // namespace sim_module
