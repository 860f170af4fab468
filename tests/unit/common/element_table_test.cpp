#include <iterator>
#include <set>
#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "orvan_element_names.h"
#include <dataorvan.h>

namespace {

struct Row {
    int tag;
    uint32_t pos;
    uint32_t size;
    ValueTypes type;
    const char* section;
    const char* field;
};

// The layout as other processes know it.
constexpr Row kRows[] = {
    {0, 0, 4, TYPE_BOOL, "CHANNEL", "Enabled"},
    {1, 4, 4, TYPE_BOOL, "CHANNEL", "State"},
    {2, 8, 4, TYPE_INT32, "CHANNEL", "SetupNo"},
    {3, 12, 4, TYPE_UINT32, "CHANNEL", "modulateCfg"},
    {4, 16, 4, TYPE_BOOL, "RUNMODE", "InitMode"},
    {5, 20, 32, TYPE_STRING, "RUNMODE", "TriggerSrc"},
    {6, 52, 32, TYPE_STRING, "RUNMODE", "TrigEdge"},
    {7, 84, 32, TYPE_STRING, "RUNMODE", "TriggerAdvance"},
    {8, 116, 4, TYPE_INT32, "RUNMODE", "TriggerCount"},
    {9, 120, 4, TYPE_INT32, "RUNMODE", "TriggerCountMin"},
    {10, 124, 4, TYPE_INT32, "RUNMODE", "TriggerCountMax"},
    {11, 128, 8, TYPE_DOUBLE, "RUNMODE", "TriggerDelay"},
    {12, 136, 8, TYPE_DOUBLE, "RUNMODE", "TriggerDelayMin"},
    {13, 144, 8, TYPE_DOUBLE, "RUNMODE", "TriggerDelayMax"},
    {14, 152, 4, TYPE_BOOL, "RUNMODE", "TriggerTimer"},
    {15, 160, 8, TYPE_DOUBLE, "RUNMODE", "TriggerTimerTime"},
    {16, 168, 8, TYPE_DOUBLE, "RUNMODE", "TriggerTimerTimeMin"},
    {17, 176, 8, TYPE_DOUBLE, "RUNMODE", "TriggerTimerTimeMax"},
    {18, 184, 4, TYPE_UINT32, "RUNMODE", "TriggerInputImpedance"},
    {19, 192, 4, TYPE_BOOL, "ANALOGOUTPUT", "RfOutput"},
    {20, 200, 8, TYPE_DOUBLE, "ANALOGOUTPUT", "Frequency"},
    {21, 208, 8, TYPE_DOUBLE, "ANALOGOUTPUT", "FrequencyDef"},
    {22, 224, 8, TYPE_DOUBLE, "ANALOGOUTPUT", "FrequencyMin"},
    {23, 216, 8, TYPE_DOUBLE, "ANALOGOUTPUT", "FrequencyMax"},
    {24, 232, 8, TYPE_DOUBLE, "ANALOGOUTPUT", "Power"},
    {25, 240, 8, TYPE_DOUBLE, "ANALOGOUTPUT", "PowerDef"},
    {26, 256, 8, TYPE_DOUBLE, "ANALOGOUTPUT", "PowerMin"},
    {27, 248, 8, TYPE_DOUBLE, "ANALOGOUTPUT", "PowerMax"},
    {28, 264, 8, TYPE_DOUBLE, "ANALOGOUTPUT", "Phase"},
    {29, 272, 8, TYPE_DOUBLE, "ANALOGOUTPUT", "PhaseDef"},
    {30, 288, 8, TYPE_DOUBLE, "ANALOGOUTPUT", "PhaseMin"},
    {31, 280, 8, TYPE_DOUBLE, "ANALOGOUTPUT", "PhaseMax"},
    {32, 296, 32, TYPE_STRING, "ANALOGOUTPUT", "RefOsc"},
    {33, 328, 32, TYPE_STRING, "ANALOGOUTPUT", "RefOscFrequency"},
    {34, 360, 4, TYPE_BOOL, "LIST", "ListState"},
    {35, 364, 32, TYPE_STRING, "LIST", "ListDefines"},
    {36, 396, 4, TYPE_BOOL, "LIST", "PatternState"},
    {37, 400, 32, TYPE_STRING, "LIST", "PatternDefines"},
    {38, 436, 4, TYPE_UINT32, "LIST", "ListStepsMin"},
    {39, 432, 4, TYPE_UINT32, "LIST", "ListStepsMax"},
    {40, 440, 4, TYPE_UINT32, "LIST", "ListStepsDef"},
    {41, 456, 8, TYPE_DOUBLE, "LIST", "ListFrequencyMin"},
    {42, 448, 8, TYPE_DOUBLE, "LIST", "ListFrequencyMax"},
    {43, 464, 8, TYPE_DOUBLE, "LIST", "ListFrequencyDef"},
    {44, 480, 8, TYPE_DOUBLE, "LIST", "ListPowerMin"},
    {45, 472, 8, TYPE_DOUBLE, "LIST", "ListPowerMax"},
    {46, 488, 8, TYPE_DOUBLE, "LIST", "ListPowerDef"},
    {47, 504, 8, TYPE_DOUBLE, "LIST", "ListDwellTimeMin"},
    {48, 496, 8, TYPE_DOUBLE, "LIST", "ListDwellTimeMax"},
    {49, 512, 8, TYPE_DOUBLE, "LIST", "ListDwellTimeDef"},
    {50, 524, 4, TYPE_UINT32, "LIST", "PatternStepsMin"},
    {51, 520, 4, TYPE_UINT32, "LIST", "PatternStepsMax"},
    {52, 528, 4, TYPE_UINT32, "LIST", "PatternStepsDef"},
    {53, 544, 8, TYPE_DOUBLE, "LIST", "PatternTimeMin"},
    {54, 536, 8, TYPE_DOUBLE, "LIST", "PatternTimeMax"},
    {55, 552, 8, TYPE_DOUBLE, "LIST", "PatternTimeDef"},
    {56, 560, 4, TYPE_BOOL, "MODULATIONS", "AMState"},
    {57, 564, 32, TYPE_STRING, "MODULATIONS", "AMSrcMode"},
    {58, 600, 8, TYPE_DOUBLE, "MODULATIONS", "AMModFreq"},
    {59, 616, 8, TYPE_DOUBLE, "MODULATIONS", "AMModFreqMin"},
    {60, 608, 8, TYPE_DOUBLE, "MODULATIONS", "AMModFreqMax"},
    {61, 624, 8, TYPE_DOUBLE, "MODULATIONS", "AMModeDepth"},
    {62, 640, 8, TYPE_DOUBLE, "MODULATIONS", "AMModeDepthMin"},
    {63, 632, 8, TYPE_DOUBLE, "MODULATIONS", "AMModeDepthMax"},
    {64, 648, 4, TYPE_BOOL, "MODULATIONS", "FMState"},
    {65, 652, 32, TYPE_STRING, "MODULATIONS", "FMSrcMode"},
    {66, 688, 8, TYPE_DOUBLE, "MODULATIONS", "FMModFreq"},
    {67, 704, 8, TYPE_DOUBLE, "MODULATIONS", "FMModFreqMin"},
    {68, 696, 8, TYPE_DOUBLE, "MODULATIONS", "FMModFreqMax"},
    {69, 712, 8, TYPE_DOUBLE, "MODULATIONS", "FMModeDev"},
    {70, 728, 8, TYPE_DOUBLE, "MODULATIONS", "FMModeDevMin"},
    {71, 720, 8, TYPE_DOUBLE, "MODULATIONS", "FMModeDevMax"},
    {72, 736, 4, TYPE_BOOL, "MODULATIONS", "PMState"},
    {73, 740, 32, TYPE_STRING, "MODULATIONS", "PMSrcMode"},
    {74, 776, 8, TYPE_DOUBLE, "MODULATIONS", "PMModFreq"},
    {75, 792, 8, TYPE_DOUBLE, "MODULATIONS", "PMModFreqMin"},
    {76, 784, 8, TYPE_DOUBLE, "MODULATIONS", "PMModFreqMax"},
    {77, 800, 8, TYPE_DOUBLE, "MODULATIONS", "PMModeDev"},
    {78, 816, 8, TYPE_DOUBLE, "MODULATIONS", "PMModeDevMin"},
    {79, 808, 8, TYPE_DOUBLE, "MODULATIONS", "PMModeDevMax"},
    {80, 824, 4, TYPE_BOOL, "MODULATIONS", "PulseMState"},
    {81, 828, 32, TYPE_STRING, "MODULATIONS", "PulseMSrcMode"},
    {82, 864, 8, TYPE_DOUBLE, "MODULATIONS", "PulseMModFreq"},
    {83, 880, 8, TYPE_DOUBLE, "MODULATIONS", "PulseMModFreqMin"},
    {84, 872, 8, TYPE_DOUBLE, "MODULATIONS", "PulseMModFreqMax"},
    {85, 888, 8, TYPE_DOUBLE, "MODULATIONS", "PulseMModeWidth"},
    {86, 904, 8, TYPE_DOUBLE, "MODULATIONS", "PulseMModeWidthMin"},
    {87, 896, 8, TYPE_DOUBLE, "MODULATIONS", "PulseMModeWidthMax"},
    {88, 912, 4, TYPE_BOOL, "MODULATIONS", "FRSWeepState"},
    {89, 920, 8, TYPE_DOUBLE, "MODULATIONS", "FRSWeepStart"},
    {90, 936, 8, TYPE_DOUBLE, "MODULATIONS", "FRSWeepStartMin"},
    {91, 928, 8, TYPE_DOUBLE, "MODULATIONS", "FRSWeepStartMax"},
    {92, 944, 8, TYPE_DOUBLE, "MODULATIONS", "FRSWeepStop"},
    {93, 960, 8, TYPE_DOUBLE, "MODULATIONS", "FRSWeepStopMin"},
    {94, 952, 8, TYPE_DOUBLE, "MODULATIONS", "FRSWeepStopMax"},
    {95, 968, 4, TYPE_UINT32, "MODULATIONS", "FRSWeepSteps"},
    {96, 976, 4, TYPE_UINT32, "MODULATIONS", "FRSWeepStepsMin"},
    {97, 972, 4, TYPE_UINT32, "MODULATIONS", "FRSWeepStepsMax"},
    {98, 984, 8, TYPE_DOUBLE, "MODULATIONS", "FRSWeepStepTime"},
    {99, 1000, 8, TYPE_DOUBLE, "MODULATIONS", "FRSWeepStepTimeMin"},
    {100, 992, 8, TYPE_DOUBLE, "MODULATIONS", "FRSWeepStepTimeMax"},
    {101, 1008, 32, TYPE_STRING, "MODULATIONS", "FRSWeepDir"},
    {102, 1040, 4, TYPE_BOOL, "MODULATIONS", "PRSWeepState"},
    {103, 1048, 8, TYPE_DOUBLE, "MODULATIONS", "PRSWeepStart"},
    {104, 1064, 8, TYPE_DOUBLE, "MODULATIONS", "PRSWeepStartMin"},
    {105, 1056, 8, TYPE_DOUBLE, "MODULATIONS", "PRSWeepStartMax"},
    {106, 1072, 8, TYPE_DOUBLE, "MODULATIONS", "PRSWeepStop"},
    {107, 1088, 8, TYPE_DOUBLE, "MODULATIONS", "PRSWeepStopMin"},
    {108, 1080, 8, TYPE_DOUBLE, "MODULATIONS", "PRSWeepStopMax"},
    {109, 1096, 4, TYPE_UINT32, "MODULATIONS", "PRSWeepSteps"},
    {110, 1104, 4, TYPE_UINT32, "MODULATIONS", "PRSWeepStepsMin"},
    {111, 1100, 4, TYPE_UINT32, "MODULATIONS", "PRSWeepStepsMax"},
    {112, 1112, 8, TYPE_DOUBLE, "MODULATIONS", "PRSWeepStepTime"},
    {113, 1128, 8, TYPE_DOUBLE, "MODULATIONS", "PRSWeepStepTimeMin"},
    {114, 1120, 8, TYPE_DOUBLE, "MODULATIONS", "PRSWeepStepTimeMax"},
    {115, 1136, 32, TYPE_STRING, "MODULATIONS", "PRSWeepDir"},
    {116, 1168, 32, TYPE_STRING, "SYSTEM", "Model"},
    {117, 1200, 32, TYPE_STRING, "SYSTEM", "Serial"},
    {118, 1232, 32, TYPE_STRING, "SYSTEM", "type"},
    {119, 1264, 8, TYPE_DOUBLE, "SYSTEM", "Temperature"},
    {120, 1272, 4, TYPE_INT32, "SYSTEM", "Battery"},
    {121, 1276, 4, TYPE_INT32, "SYSTEM", "CurrentStatus"},
    {122, 1280, 32, TYPE_STRING, "SYSTEM", "CalibrationDate"},
    {123, 1312, 32, TYPE_STRING, "SYSTEM", "Options"},
    {124, 1344, 32, TYPE_STRING, "SYSTEM", "Manufacture"},
    {125, 1376, 32, TYPE_STRING, "SYSTEM", "Hardware"},
    {126, 1408, 32, TYPE_STRING, "SYSTEM", "Firmware"},
    {127, 1440, 32, TYPE_STRING, "SYSTEM", "Fpga"},
    {128, 1472, 32, TYPE_STRING, "SYSTEM", "Scpi"},
    {129, 1504, 32, TYPE_STRING, "SYSTEM", "Interface"},
    {130, 1536, 32, TYPE_STRING, "SYSTEM", "Address"},
    {131, 1568, 32, TYPE_STRING, "SYSTEM", "Mask"},
    {132, 1600, 32, TYPE_STRING, "SYSTEM", "GATeway"},
    {133, 1632, 32, TYPE_STRING, "SYSTEM", "Port"},
    {134, 1664, 32, TYPE_STRING, "SYSTEM", "Dns1"},
    {135, 1696, 32, TYPE_STRING, "SYSTEM", "Dns2"},
    {136, 1728, 32, TYPE_STRING, "SYSTEM", "MACaddr"},
    {137, 1760, 4, TYPE_BOOL, "SYSTEM", "DHCP"},
    {138, 1764, 4, TYPE_BOOL, "SYSTEM", "BOOTp"},
    {139, 1768, 32, TYPE_STRING, "SYSTEM", "HOSTname"},
    {140, 1800, 4, TYPE_BOOL, "SYSTEM", "KEEPaliveState"},
    {141, 1804, 4, TYPE_INT32, "SYSTEM", "KEEPaliveTimeout"},
    {142, 1808, 4, TYPE_INT32, "SYSTEM", "KEEPaliveProbes"},
    {143, 1812, 4, TYPE_INT32, "SYSTEM", "LowLevelBatAlarm"},
};

TEST(ElementTable, EachTagHasItsPlaceSizeAndType)
{
    ASSERT_EQ(std::size(kRows), kOrvanElementCount);
    for (const Row& row : kRows) {
        const OrvanElementData& element = OrvanData::orvanMap[row.tag];
        EXPECT_EQ(element.pos, row.pos) << "tag " << row.tag;
        EXPECT_EQ(element.size, row.size) << "tag " << row.tag;
        EXPECT_EQ(element.type, row.type) << "tag " << row.tag;
    }
}

TEST(ElementTable, EachTagHasItsNameInTheFiles)
{
    for (const Row& row : kRows) {
        EXPECT_STREQ(orvan_common::kElementNames[row.tag].section, row.section) << "tag " << row.tag;
        EXPECT_STREQ(orvan_common::kElementNames[row.tag].field, row.field) << "tag " << row.tag;
    }
}

TEST(ElementTable, NothingIsScaled)
{
    for (size_t tag = 0; tag < kOrvanElementCount; ++tag) {
        EXPECT_EQ(OrvanData::orvanMap[tag].factor, 1.0) << "tag " << tag;
    }
}

TEST(ElementTable, EndsAfterTheLastTagWithAllBitsSet)
{
    EXPECT_EQ(std::size(OrvanData::orvanMap), 145u);
    EXPECT_EQ(OrvanData::orvanMap[144].pos, 0xFFFFFFFFu);
    for (size_t tag = 0; tag < kOrvanElementCount; ++tag) {
        EXPECT_NE(OrvanData::orvanMap[tag].pos, 0xFFFFFFFFu) << "tag " << tag;
    }
}

TEST(ElementTable, NoTwoElementsShareAByte)
{
    std::set<uint32_t> taken;
    for (size_t tag = 0; tag < kOrvanElementCount; ++tag) {
        const OrvanElementData& element = OrvanData::orvanMap[tag];
        for (uint32_t i = 0; i < element.size; ++i) {
            EXPECT_TRUE(taken.insert(element.pos + i).second) << "tag " << tag << " byte " << i;
        }
    }
    EXPECT_LT(*taken.rbegin(), sizeof(ORVAN_CONFIG));
}

std::set<int> tags_sent_in(SendOnInit pass)
{
    std::set<int> tags;
    for (int tag = 0; OrvanData::orvanMap[tag].pos != UINT32_MAX; ++tag) {
        if (OrvanData::orvanMap[tag].send == pass) {
            tags.insert(tag);
        }
    }
    return tags;
}

TEST(ElementTable, ValuesThatACommandSetsAreSentInTheFirstPass)
{
    const std::set<int> values = {
        ODT_TRG_SRC,        ODT_TRG_EDGE,      ODT_TRG_ADV,    ODT_TRG_COUNT, ODT_TRG_DELAY,
        ODT_TRG_TIMER_TIME, ODT_FREQ,          ODT_PWR,        ODT_PHASE,     ODT_REF_OSC_FREQ,
        ODT_LIST_DEF,       ODT_PATT_DEF,      ODT_AM_SRC,     ODT_AM_FREQ,   ODT_AM_DEPT,
        ODT_FM_SRC,         ODT_FM_FREQ,       ODT_FM_DEV,     ODT_PM_FREQ,   ODT_PM_DEV,
        ODT_PULS_SRC,       ODT_PULS_FREQ,     ODT_PULS_WIDTH, ODT_FRS_START, ODT_FRS_STOP,
        ODT_FRS_STEPS,      ODT_FRS_STEP_TIME, ODT_FRS_DIR,    ODT_PRS_START, ODT_PRS_STOP,
        ODT_PRS_STEPS,      ODT_PRS_STEP_TIME, ODT_PRS_DIR,
    };
    EXPECT_EQ(tags_sent_in(eSendPri1), values);
}

TEST(ElementTable, WhatSwitchesSomethingOnIsSentInTheSecondPass)
{
    const std::set<int> switches = {ODT_INIT_RUN, ODT_RF_OUT,  ODT_LIST_STAT, ODT_PATT_STAT, ODT_AM_STAT,
                                    ODT_FM_STAT,  ODT_PM_STAT, ODT_PULS_STAT, ODT_FRS_STAT,  ODT_PRS_STAT};
    EXPECT_EQ(tags_sent_in(eSendPri2), switches);
    for (int tag : switches) {
        EXPECT_EQ(OrvanData::orvanMap[tag].type, TYPE_BOOL) << "tag " << tag;
    }
}

TEST(ElementTable, WhatNoCommandSetsIsNeverSent)
{
    const std::set<int> unsent = tags_sent_in(eSendNone);
    EXPECT_EQ(unsent.size(), kOrvanElementCount - 33 - 10);
    // These three look settable and are not: the first two have no command, the third only a query.
    EXPECT_TRUE(unsent.contains(ODT_TRG_TIMER) && unsent.contains(ODT_PM_SRC) &&
                unsent.contains(ODT_REF_OSC_MODE));
}

TEST(ElementTable, WordsAreInEnumerationOrder)
{
    using ::testing::ElementsAre;
    using ::testing::StrEq;
    EXPECT_THAT(ModulationNames, ElementsAre(StrEq("AM"), StrEq("FM"), StrEq("PM"), StrEq("FRSW"),
                                             StrEq("PRSW"), StrEq("Pulse"), StrEq("List"), StrEq("Pattern")));
    EXPECT_THAT(SweepDirectionToString, ElementsAre(StrEq("NORMAL"), StrEq("UPDOWN")));
    EXPECT_THAT(TriggerSourceToString, ElementsAre(StrEq("EXTernal"), StrEq("BUS"), StrEq("TIMer")));
    EXPECT_THAT(TriggerEdgeToString, ElementsAre(StrEq("POSitive"), StrEq("NEGative")));
    EXPECT_THAT(TriggerAdvToString, ElementsAre(StrEq("ONCe"), StrEq("STEP")));
    EXPECT_THAT(ModSrcModeToString, ElementsAre(StrEq("INTernal"), StrEq("EXTernal")));
}

TEST(ElementTable, NumbersOfTheEnumerationsAreFixed)
{
    EXPECT_EQ(ODT_NO_TAG, -1);
    EXPECT_EQ(Off, 0);
    EXPECT_EQ(On, 1);
    EXPECT_EQ(sizeof(OnOff), 4u);
    const ValueTypes types[] = {TYPE_BOOL,   TYPE_INT32, TYPE_UINT32, TYPE_INT64,
                                TYPE_UINT64, TYPE_FLOAT, TYPE_DOUBLE, TYPE_STRING};
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(types[i], i);
    }
    EXPECT_EQ(eSendNone, 0);
    EXPECT_EQ(eSendPri1, 1);
    EXPECT_EQ(eSendPri2, 2);
}

TEST(ElementTable, TheRecordCanBePlacedInSharedMemory)
{
    EXPECT_EQ(sizeof(ORVAN_CONFIG), 1816u);
    EXPECT_EQ(offsetof(ORVAN_CONFIG, RUNMODE), 16u);
    EXPECT_EQ(offsetof(ORVAN_CONFIG, ANALOGOUTPUT), 192u);
    EXPECT_EQ(offsetof(ORVAN_CONFIG, LIST), 360u);
    EXPECT_EQ(offsetof(ORVAN_CONFIG, MODULATIONS), 560u);
    EXPECT_EQ(offsetof(ORVAN_CONFIG, SYSTEM), 1168u);
    EXPECT_TRUE(std::is_trivially_copyable_v<ORVAN_CONFIG> && std::is_standard_layout_v<ORVAN_CONFIG>);
    EXPECT_TRUE(std::is_empty_v<OrvanData>);
}

} // namespace
