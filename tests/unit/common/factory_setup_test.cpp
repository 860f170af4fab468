#include <cstring>
#include <iterator>
#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "orvan_element_names.h"
#include "temp_folder.h"
#include <dataorvan.h>

namespace {

// What a setup does not contain: the selection, the module's presence, identity, readings and network
// belong to the instrument, and a recall must leave them alone.
const std::set<int> kNotInTheFactorySetup = {
    ODT_CHAN_ENA,       ODT_CHAN_STAT,  ODT_INF_MODEL, ODT_INF_SERIAL, ODT_INF_TYPE, ODT_TEMP,    ODT_BATT,
    ODT_CURRENT_STATUS, ODT_CALIB_DATE, ODT_OPT,       ODT_MANUFACT,   ODT_HARD,     ODT_FIRM,    ODT_FPGA,
    ODT_SCPI,           ODT_IF_NAME,    ODT_IF_ADDR,   ODT_IF_MASK,    ODT_IF_GATE,  ODT_IF_PORT, ODT_IF_DNS1,
    ODT_IF_DNS2,        ODT_IF_MAC,     ODT_IF_DHCP,   ODT_BOOT_P,     ODT_HOST,
};

class FactorySetup : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::memset(&config, 0x5A, sizeof config);
        ASSERT_EQ(OrvanData().init_cmd_config(ORVAN_FACTORY_SETUP, &config), 0);
    }

    ORVAN_CONFIG config;
};

TEST_F(FactorySetup, HasEverySettableFieldAndNothingUnknown)
{
    std::multiset<std::string> expected;
    for (int tag = 0; tag < static_cast<int>(kOrvanElementCount); ++tag) {
        if (!kNotInTheFactorySetup.contains(tag)) {
            expected.insert(std::string(orvan_common::kElementNames[tag].section) + "." +
                            orvan_common::kElementNames[tag].field);
        } else {
            EXPECT_EQ(OrvanData::orvanMap[tag].send, eSendNone) << "tag " << tag;
        }
    }
    std::multiset<std::string> present;
    cJSON* root = cJSON_Parse(read_file(ORVAN_FACTORY_SETUP).c_str());
    const cJSON* section = nullptr;
    cJSON_ArrayForEach(section, root)
    {
        const cJSON* field = nullptr;
        cJSON_ArrayForEach(field, section)
        {
            present.insert(std::string(section->string) + "." + field->string);
        }
    }
    cJSON_Delete(root);
    EXPECT_EQ(present, expected);
}

TEST_F(FactorySetup, LeavesTheInstrumentsOwnFieldsAlone)
{
    const auto* record = reinterpret_cast<const uint8_t*>(&config);
    for (int tag : kNotInTheFactorySetup) {
        for (uint32_t i = 0; i < OrvanData::orvanMap[tag].size; ++i) {
            EXPECT_EQ(record[OrvanData::orvanMap[tag].pos + i], 0x5A) << "tag " << tag;
        }
    }
}

TEST_F(FactorySetup, SwitchesNothingOnButContinuousInitiation)
{
    const auto* record = reinterpret_cast<const uint8_t*>(&config);
    for (int tag = 0; tag < static_cast<int>(kOrvanElementCount); ++tag) {
        if (OrvanData::orvanMap[tag].send != eSendPri2) {
            continue;
        }
        int state = -1;
        std::memcpy(&state, record + OrvanData::orvanMap[tag].pos, sizeof state);
        EXPECT_EQ(state, tag == ODT_INIT_RUN ? On : Off) << orvan_common::kElementNames[tag].field;
    }
}

TEST_F(FactorySetup, HasTheDefaultsOfAnUnprogrammedInstrument)
{
    EXPECT_EQ(config.CHANNEL.SetupNo, 0);
    EXPECT_EQ(config.ANALOGOUTPUT.Frequency, 1e9);
    EXPECT_EQ(config.ANALOGOUTPUT.FrequencyDef, 1e9);
    EXPECT_EQ(config.ANALOGOUTPUT.FrequencyMin, 50e3);
    EXPECT_EQ(config.ANALOGOUTPUT.FrequencyMax, 20e9);
    EXPECT_EQ(config.ANALOGOUTPUT.Power, 5);
    EXPECT_EQ(config.ANALOGOUTPUT.PowerMin, -30);
    EXPECT_EQ(config.ANALOGOUTPUT.PowerMax, 15);
}

TEST_F(FactorySetup, EachValueIsWithinItsLimits)
{
    struct Range {
        const char* name;
        double value;
        double min;
        double max;
    };
    const auto& run = config.RUNMODE;
    const auto& out = config.ANALOGOUTPUT;
    const auto& list = config.LIST;
    const auto& mod = config.MODULATIONS;
    const Range ranges[] = {
        {"trigger count", double(run.TriggerCount), double(run.TriggerCountMin), double(run.TriggerCountMax)},
        {"trigger delay", run.TriggerDelay, run.TriggerDelayMin, run.TriggerDelayMax},
        {"trigger timer", run.TriggerTimerTime, run.TriggerTimerTimeMin, run.TriggerTimerTimeMax},
        {"frequency", out.Frequency, out.FrequencyMin, out.FrequencyMax},
        {"power", out.Power, out.PowerMin, out.PowerMax},
        {"default power", out.PowerDef, out.PowerMin, out.PowerMax},
        {"phase", out.Phase, out.PhaseMin, out.PhaseMax},
        {"default phase", out.PhaseDef, out.PhaseMin, out.PhaseMax},
        {"list steps", double(list.ListStepsDef), double(list.ListStepsMin), double(list.ListStepsMax)},
        {"list frequency", list.ListFrequencyDef, list.ListFrequencyMin, list.ListFrequencyMax},
        {"list power", list.ListPowerDef, list.ListPowerMin, list.ListPowerMax},
        {"list dwell", list.ListDwellTimeDef, list.ListDwellTimeMin, list.ListDwellTimeMax},
        {"pattern steps", double(list.PatternStepsDef), double(list.PatternStepsMin),
         double(list.PatternStepsMax)},
        {"pattern time", list.PatternTimeDef, list.PatternTimeMin, list.PatternTimeMax},
        {"AM frequency", mod.AMModFreq, mod.AMModFreqMin, mod.AMModFreqMax},
        {"AM depth", mod.AMModeDepth, mod.AMModeDepthMin, mod.AMModeDepthMax},
        {"FM frequency", mod.FMModFreq, mod.FMModFreqMin, mod.FMModFreqMax},
        {"FM deviation", mod.FMModeDev, mod.FMModeDevMin, mod.FMModeDevMax},
        {"PM frequency", mod.PMModFreq, mod.PMModFreqMin, mod.PMModFreqMax},
        {"PM deviation", mod.PMModeDev, mod.PMModeDevMin, mod.PMModeDevMax},
        {"pulse frequency", mod.PulseMModFreq, mod.PulseMModFreqMin, mod.PulseMModFreqMax},
        {"pulse width", mod.PulseMModeWidth, mod.PulseMModeWidthMin, mod.PulseMModeWidthMax},
        {"pulse width in its period", mod.PulseMModeWidth, 0, 1 / mod.PulseMModFreq},
        {"sweep start", mod.FRSWeepStart, mod.FRSWeepStartMin, mod.FRSWeepStartMax},
        {"sweep stop", mod.FRSWeepStop, mod.FRSWeepStopMin, mod.FRSWeepStopMax},
        {"sweep order", mod.FRSWeepStart, mod.FRSWeepStartMin, mod.FRSWeepStop},
        {"sweep steps", double(mod.FRSWeepSteps), double(mod.FRSWeepStepsMin), double(mod.FRSWeepStepsMax)},
        {"sweep time", mod.FRSWeepStepTime, mod.FRSWeepStepTimeMin, mod.FRSWeepStepTimeMax},
        {"2nd sweep start", mod.PRSWeepStart, mod.PRSWeepStartMin, mod.PRSWeepStartMax},
        {"2nd sweep stop", mod.PRSWeepStop, mod.PRSWeepStopMin, mod.PRSWeepStopMax},
        {"2nd sweep steps", double(mod.PRSWeepSteps), double(mod.PRSWeepStepsMin),
         double(mod.PRSWeepStepsMax)},
        {"2nd sweep time", mod.PRSWeepStepTime, mod.PRSWeepStepTimeMin, mod.PRSWeepStepTimeMax},
    };
    for (const Range& range : ranges) {
        EXPECT_GE(range.value, range.min) << range.name;
        EXPECT_LE(range.value, range.max) << range.name;
        EXPECT_LT(range.min, range.max) << range.name;
    }
}

// The controller writes one limit to each of these groups at start-up.
TEST_F(FactorySetup, RelatedLimitsAreEqual)
{
    const auto& out = config.ANALOGOUTPUT;
    const auto& list = config.LIST;
    const auto& mod = config.MODULATIONS;
    for (double limit : {list.ListFrequencyMax, mod.FRSWeepStartMax, mod.FRSWeepStopMax}) {
        EXPECT_EQ(limit, out.FrequencyMax);
    }
    for (double limit : {list.ListFrequencyMin, mod.FRSWeepStartMin, mod.FRSWeepStopMin}) {
        EXPECT_EQ(limit, out.FrequencyMin);
    }
    for (double limit : {list.ListPowerMin, mod.PRSWeepStartMin, mod.PRSWeepStopMin}) {
        EXPECT_EQ(limit, out.PowerMin);
    }
    for (double limit : {list.ListPowerMax, mod.PRSWeepStartMax, mod.PRSWeepStopMax}) {
        EXPECT_EQ(limit, out.PowerMax);
    }
}

template <size_t N>
bool is_word_of(const char* const (&words)[N], const char* text)
{
    for (const char* word : words) {
        if (std::strcmp(word, text) == 0) {
            return true;
        }
    }
    return false;
}

TEST_F(FactorySetup, WordsAreInTheirTables)
{
    EXPECT_TRUE(is_word_of(TriggerSourceToString, config.RUNMODE.TriggerSrc));
    EXPECT_TRUE(is_word_of(TriggerEdgeToString, config.RUNMODE.TrigEdge));
    EXPECT_TRUE(is_word_of(TriggerAdvToString, config.RUNMODE.TriggerAdvance));
    EXPECT_TRUE(is_word_of(ModSrcModeToString, config.MODULATIONS.AMSrcMode));
    EXPECT_TRUE(is_word_of(ModSrcModeToString, config.MODULATIONS.FMSrcMode));
    EXPECT_TRUE(is_word_of(ModSrcModeToString, config.MODULATIONS.PMSrcMode));
    EXPECT_TRUE(is_word_of(ModSrcModeToString, config.MODULATIONS.PulseMSrcMode));
    EXPECT_TRUE(is_word_of(SweepDirectionToString, config.MODULATIONS.FRSWeepDir));
    EXPECT_TRUE(is_word_of(SweepDirectionToString, config.MODULATIONS.PRSWeepDir));
}

TEST_F(FactorySetup, NoSentTextIsEmpty)
{
    const auto* record = reinterpret_cast<const char*>(&config);
    for (size_t tag = 0; tag < kOrvanElementCount; ++tag) {
        const OrvanElementData& element = OrvanData::orvanMap[tag];
        if (element.send != eSendNone && element.type == TYPE_STRING) {
            EXPECT_STRNE(record + element.pos, "") << orvan_common::kElementNames[tag].field;
        }
    }
}

} // namespace
