#include "channel_settings.h"

namespace orvan_web {
namespace {

using enum SettingKind;

constexpr const char* kSources = "INTernal|EXTernal";
constexpr const char* kDirections = "NORMal|UPDown";

// clang-format off
constexpr ChannelSetting kSettings[] = {
    // path                        group                    label                   unit   kind      choices                  header            tag               limits                                          read-only, asked
    {"frequency_hz",               "Output",                "Frequency",            "Hz",  kNumber,  nullptr,                 ":FREQ",          ODT_FREQ,         ODT_FREQ_MIN,          ODT_FREQ_MAX,            false, true},
    {"level_dbm",                  "Output",                "Level",                "dBm", kNumber,  nullptr,                 ":POW",           ODT_PWR,          ODT_PWR_MIN,           ODT_PWR_MAX,             false, true},
    {"phase_deg",                  "Output",                "Phase",                "deg", kNumber,  nullptr,                 ":PHAS",          ODT_PHASE,        ODT_PHASE_MIN,         ODT_PHASE_MAX,           false, true},
    {"rf_output",                  "Output",                "RF output",            "",    kSwitch,  nullptr,                 ":OUTP",          ODT_RF_OUT,       ODT_NO_TAG,            ODT_NO_TAG,              false, false},

    {"am/enabled",                 "Amplitude modulation",  "AM",                   "",    kSwitch,  nullptr,                 ":AM",            ODT_AM_STAT,      ODT_NO_TAG,            ODT_NO_TAG,              false, true},
    {"am/source",                  "Amplitude modulation",  "Source",               "",    kChoice,  kSources,                ":AM:SOUR",       ODT_AM_SRC,       ODT_NO_TAG,            ODT_NO_TAG,              false, true},
    {"am/frequency_hz",            "Amplitude modulation",  "Modulation frequency", "Hz",  kNumber,  nullptr,                 ":AM:INT:FREQ",   ODT_AM_FREQ,      ODT_AM_FREQ_MIN,       ODT_AM_FREQ_MAX,         false, true},
    {"am/depth_percent",           "Amplitude modulation",  "Depth",                "%",   kNumber,  nullptr,                 ":AM:DEPT",       ODT_AM_DEPT,      ODT_AM_DEPT_MIN,       ODT_AM_DEPT_MAX,         false, true},

    {"fm/enabled",                 "Frequency modulation",  "FM",                   "",    kSwitch,  nullptr,                 ":FM",            ODT_FM_STAT,      ODT_NO_TAG,            ODT_NO_TAG,              false, true},
    {"fm/source",                  "Frequency modulation",  "Source",               "",    kChoice,  kSources,                ":FM:SOUR",       ODT_FM_SRC,       ODT_NO_TAG,            ODT_NO_TAG,              false, true},
    {"fm/frequency_hz",            "Frequency modulation",  "Modulation frequency", "Hz",  kNumber,  nullptr,                 ":FM:INT:FREQ",   ODT_FM_FREQ,      ODT_FM_FREQ_MIN,       ODT_FM_FREQ_MAX,         false, true},
    {"fm/deviation_hz",            "Frequency modulation",  "Deviation",            "Hz",  kNumber,  nullptr,                 ":FM:DEV",        ODT_FM_DEV,       ODT_FM_DEV_MIN,        ODT_FM_DEV_MAX,          false, true},

    {"pm/enabled",                 "Phase modulation",      "PM",                   "",    kSwitch,  nullptr,                 ":PM",            ODT_PM_STAT,      ODT_NO_TAG,            ODT_NO_TAG,              false, true},
    {"pm/frequency_hz",            "Phase modulation",      "Modulation frequency", "Hz",  kNumber,  nullptr,                 ":PM:INT:FREQ",   ODT_PM_FREQ,      ODT_PM_FREQ_MIN,       ODT_PM_FREQ_MAX,         false, true},
    {"pm/deviation_rad",           "Phase modulation",      "Deviation",            "rad", kNumber,  nullptr,                 ":PM:DEV",        ODT_PM_DEV,       ODT_PM_DEV_MIN,        ODT_PM_DEV_MAX,          false, true},

    {"pulse/enabled",              "Pulse modulation",      "Pulse",                "",    kSwitch,  nullptr,                 ":PULS",          ODT_PULS_STAT,    ODT_NO_TAG,            ODT_NO_TAG,              false, true},
    {"pulse/source",               "Pulse modulation",      "Source",               "",    kChoice,  kSources,                ":PULS:SOUR",     ODT_PULS_SRC,     ODT_NO_TAG,            ODT_NO_TAG,              false, true},
    {"pulse/frequency_hz",         "Pulse modulation",      "Repetition rate",      "Hz",  kNumber,  nullptr,                 ":PULS:FREQ",     ODT_PULS_FREQ,    ODT_PULS_FREQ_MIN,     ODT_PULS_FREQ_MAX,       false, true},
    {"pulse/width_s",              "Pulse modulation",      "Width",                "s",   kNumber,  nullptr,                 ":PULS:WIDT",     ODT_PULS_WIDTH,   ODT_PULS_WIDTH_MIN,    ODT_PULS_WIDTH_MAX,      false, true},

    {"frequency_sweep/enabled",    "Frequency sweep",       "Frequency sweep",      "",    kSwitch,  nullptr,                 ":FRSW",          ODT_FRS_STAT,     ODT_NO_TAG,            ODT_NO_TAG,              false, true},
    {"frequency_sweep/start_hz",   "Frequency sweep",       "Start",                "Hz",  kNumber,  nullptr,                 ":FRSW:STAR",     ODT_FRS_START,    ODT_FRS_START_MIN,     ODT_FRS_START_MAX,       false, true},
    {"frequency_sweep/stop_hz",    "Frequency sweep",       "Stop",                 "Hz",  kNumber,  nullptr,                 ":FRSW:STOP",     ODT_FRS_STOP,     ODT_FRS_STOP_MIN,      ODT_FRS_STOP_MAX,        false, true},
    {"frequency_sweep/steps",      "Frequency sweep",       "Steps",                "",    kInteger, nullptr,                 ":FRSW:STEP",     ODT_FRS_STEPS,    ODT_FRS_STEPS_MIN,     ODT_FRS_STEPS_MAX,       false, true},
    {"frequency_sweep/step_time_s","Frequency sweep",       "Step time",            "s",   kNumber,  nullptr,                 ":FRSW:TIME",     ODT_FRS_STEP_TIME,ODT_FRS_STEP_TIME_MIN, ODT_FRS_STEP_TIME_MAX,   false, true},
    {"frequency_sweep/direction",  "Frequency sweep",       "Direction",            "",    kChoice,  kDirections,             ":FRSW:DIR",      ODT_FRS_DIR,      ODT_NO_TAG,            ODT_NO_TAG,              false, true},

    {"level_sweep/enabled",        "Level sweep",           "Level sweep",          "",    kSwitch,  nullptr,                 ":PRSW",          ODT_PRS_STAT,     ODT_NO_TAG,            ODT_NO_TAG,              false, true},
    {"level_sweep/start_dbm",      "Level sweep",           "Start",                "dBm", kNumber,  nullptr,                 ":PRSW:STAR",     ODT_PRS_START,    ODT_PRS_START_MIN,     ODT_PRS_START_MAX,       false, true},
    {"level_sweep/stop_dbm",       "Level sweep",           "Stop",                 "dBm", kNumber,  nullptr,                 ":PRSW:STOP",     ODT_PRS_STOP,     ODT_PRS_STOP_MIN,      ODT_PRS_STOP_MAX,        false, true},
    {"level_sweep/steps",          "Level sweep",           "Steps",                "",    kInteger, nullptr,                 ":PRSW:STEP",     ODT_PRS_STEPS,    ODT_PRS_STEPS_MIN,     ODT_PRS_STEPS_MAX,       false, true},
    {"level_sweep/step_time_s",    "Level sweep",           "Step time",            "s",   kNumber,  nullptr,                 ":PRSW:TIME",     ODT_PRS_STEP_TIME,ODT_PRS_STEP_TIME_MIN, ODT_PRS_STEP_TIME_MAX,   false, true},
    {"level_sweep/direction",      "Level sweep",           "Direction",            "",    kChoice,  kDirections,             ":PRSW:DIR",      ODT_PRS_DIR,      ODT_NO_TAG,            ODT_NO_TAG,              false, true},

    {"list/enabled",               "List",                  "List",                 "",    kSwitch,  nullptr,                 ":LIST",          ODT_LIST_STAT,    ODT_NO_TAG,            ODT_NO_TAG,              false, true},
    {"list/definition",            "List",                  "Selected list",        "",    kText,    nullptr,                 ":LIST:DEF",      ODT_LIST_DEF,     ODT_NO_TAG,            ODT_NO_TAG,              false, true},

    {"pattern/enabled",            "Pulse pattern",         "Pattern",              "",    kSwitch,  nullptr,                 ":PATT",          ODT_PATT_STAT,    ODT_NO_TAG,            ODT_NO_TAG,              false, true},
    {"pattern/definition",         "Pulse pattern",         "Selected pattern",     "",    kText,    nullptr,                 ":PATT:DEF",      ODT_PATT_DEF,     ODT_NO_TAG,            ODT_NO_TAG,              false, true},

    {"trigger/continuous",         "Trigger",               "Continuous run",       "",    kSwitch,  nullptr,                 ":INIT:CONT",     ODT_INIT_RUN,     ODT_NO_TAG,            ODT_NO_TAG,              false, true},
    {"trigger/source",             "Trigger",               "Source",               "",    kChoice,  "EXTernal|BUS|TIMer|SPI",":TRIG:SOUR",     ODT_TRG_SRC,      ODT_NO_TAG,            ODT_NO_TAG,              false, true},
    {"trigger/edge",               "Trigger",               "Edge",                 "",    kChoice,  "POSitive|NEGative",     ":TRIG:EDG",      ODT_TRG_EDGE,     ODT_NO_TAG,            ODT_NO_TAG,              false, true},
    {"trigger/advance",            "Trigger",               "Advance",              "",    kChoice,  "ONCe|STEP",             ":TRIG:ADV",      ODT_TRG_ADV,      ODT_NO_TAG,            ODT_NO_TAG,              false, true},
    {"trigger/count",              "Trigger",               "Count",                "",    kInteger, nullptr,                 ":TRIG:COUN",     ODT_TRG_COUNT,    ODT_TRG_COUNT_MIN,     ODT_TRG_COUNT_MAX,       false, true},
    {"trigger/delay_s",            "Trigger",               "Delay",                "s",   kNumber,  nullptr,                 ":TRIG:DEL",      ODT_TRG_DELAY,    ODT_TRG_DELAY_MIN,     ODT_TRG_DELAY_MAX,       false, true},
    {"trigger/timer_s",            "Trigger",               "Timer period",         "s",   kNumber,  nullptr,                 ":TRIG:TIM:TIME", ODT_TRG_TIMER_TIME,ODT_TRG_TIMER_TIME_MIN,ODT_TRG_TIMER_TIME_MAX, false, true},

    {"reference/source",           "Reference oscillator",  "Source",               "",    kChoice,  kSources,                ":ROSC:SOUR",     ODT_REF_OSC_MODE, ODT_NO_TAG,            ODT_NO_TAG,              true,  true},
    {"reference/frequency_hz",     "Reference oscillator",  "Output frequency",     "Hz",  kNumber,  nullptr,                 ":ROSC:OUTP:FREQ",ODT_REF_OSC_FREQ, ODT_NO_TAG,            ODT_NO_TAG,              false, true},
};
// clang-format on

} // namespace

std::span<const ChannelSetting> channel_settings()
{
    return kSettings;
}

std::optional<size_t> setting_at(std::string_view path)
{
    for (size_t i = 0; i < std::size(kSettings); ++i) {
        if (path == kSettings[i].path) {
            return i;
        }
    }
    return std::nullopt;
}

} // namespace orvan_web
