/**
 * What a recalled setup sends to a module: the elements of each pass in their order, with the header that
 * sets each, and a value that no fresh record has.
 */
#ifndef ORVAN_TESTS_SUPPORT_SENT_SETUP_H
#define ORVAN_TESTS_SUPPORT_SENT_SETUP_H

#include "dataorvan.h"

namespace orvan_test {

struct SentElement {
    OrvanElement tag;
    const char* header;
    const char* value; /**< as it goes out */
};

// clang-format off
inline constexpr SentElement kSentValues[] = {
    {ODT_TRG_SRC,        ":TRIGger:SOURce",              "TIMer"},
    {ODT_TRG_EDGE,       ":TRIGger:EDGe",                "NEGative"},
    {ODT_TRG_ADV,        ":TRIGger:ADVance",             "STEP"},
    {ODT_TRG_COUNT,      ":TRIGger:COUNt",               "7"},
    {ODT_TRG_DELAY,      ":TRIGger:DELay",               "0.25"},
    {ODT_TRG_TIMER_TIME, ":TRIGger:TIMer:TIME",          "0.5"},
    {ODT_FREQ,           ":FREQuency",                   "2500000000.25"},
    {ODT_PWR,            ":POWer",                       "-12.75"},
    {ODT_PHASE,          ":PHASe",                       "33.5"},
    {ODT_REF_OSC_FREQ,   ":ROSCillator:OUTP:FREQuency",  "100MHz"},
    {ODT_LIST_DEF,       ":LIST:DEFine",                 "2"},
    {ODT_PATT_DEF,       ":PATTern:DEFine",              "3"},
    {ODT_AM_SRC,         ":AM:SOURce",                   "EXTernal"},
    {ODT_AM_FREQ,        ":AM:INTernal:FREQuency",       "2000"},
    {ODT_AM_DEPT,        ":AM:DEPTh",                    "41.5"},
    {ODT_FM_SRC,         ":FM:SOURce",                   "EXTernal"},
    {ODT_FM_FREQ,        ":FM:INTernal:FREQuency",       "3000"},
    {ODT_FM_DEV,         ":FM:DEViation",                "50000"},
    {ODT_PM_FREQ,        ":PM:INTernal:FREQuency",       "4000"},
    {ODT_PM_DEV,         ":PM:DEViation",                "2.5"},
    {ODT_PULS_SRC,       ":PULSe:SOURce",                "EXTernal"},
    {ODT_PULS_FREQ,      ":PULSe:FREQuency",             "500"},
    {ODT_PULS_WIDTH,     ":PULSe:WIDTh",                 "2e-06"},
    {ODT_FRS_START,      ":FRSWeep:STARt",               "1100000000"},
    {ODT_FRS_STOP,       ":FRSWeep:STOP",                "1900000000"},
    {ODT_FRS_STEPS,      ":FRSWeep:STEPs",               "11"},
    {ODT_FRS_STEP_TIME,  ":FRSWeep:TIME",                "0.002"},
    {ODT_FRS_DIR,        ":FRSWeep:DIRection",           "UPDOWN"},
    {ODT_PRS_START,      ":PRSWeep:STARt",               "-20"},
    {ODT_PRS_STOP,       ":PRSWeep:STOP",                "12"},
    {ODT_PRS_STEPS,      ":PRSWeep:STEPs",               "31"},
    {ODT_PRS_STEP_TIME,  ":PRSWeep:TIME",                "0.003"},
    {ODT_PRS_DIR,        ":PRSWeep:DIRection",           "UPDOWN"},
};

inline constexpr SentElement kSentStates[] = {
    {ODT_INIT_RUN,       ":INITiate:CONTinuous",         "ON"},
    {ODT_RF_OUT,         ":OUTPut",                      "ON"},
    {ODT_LIST_STAT,      ":LIST",                        "OFF"},
    {ODT_PATT_STAT,      ":PATTern",                     "OFF"},
    {ODT_AM_STAT,        ":AM",                          "ON"},
    {ODT_FM_STAT,        ":FM",                          "OFF"},
    {ODT_PM_STAT,        ":PM",                          "ON"},
    {ODT_PULS_STAT,      ":PULSe",                       "ON"},
    {ODT_FRS_STAT,       ":FRSWeep",                     "OFF"},
    {ODT_PRS_STAT,       ":PRSWeep",                     "ON"},
};
// clang-format on

} // namespace orvan_test

#endif
