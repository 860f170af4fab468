/**
 * The record of one channel, its element table and its form on disk.
 *
 * The records of all channels are stored side by side in shared memory and are read by other processes, so
 * the layout below is fixed: it is the same on 32-bit and 64-bit platforms, holds no pointer, and
 * changing it means changing every program that maps it.
 */
#ifndef DATAORVAN_H
#define DATAORVAN_H

#include <cstddef>
#include <cstdint>

#include <cjson/cJSON.h>

/** The shared memory object with the records of all channels; channel n is at (n - 1) times a record's size.
 */
inline constexpr const char* g_shmemName = "/orvanData";

/** Bytes of a text field, its terminating zero included. */
inline constexpr size_t kOrvanTextSize = 32;

/** A switch. Readers take every value but 0 as on. */
enum OnOff : int { Off = 0, On = 1 };

/** Form of a stored value. */
enum ValueTypes : int {
    TYPE_BOOL = 0, /**< an `OnOff`, 4 bytes */
    TYPE_INT32 = 1,
    TYPE_UINT32 = 2,
    TYPE_INT64 = 3,
    TYPE_UINT64 = 4,
    TYPE_FLOAT = 5,
    TYPE_DOUBLE = 6,
    TYPE_STRING = 7, /**< zero-terminated bytes in a field of `size` */
};

/** Pass of a recall in which an element is sent to its module. */
enum SendOnInit : int {
    eSendNone = 0, /**< never */
    eSendPri1 = 1, /**< values */
    eSendPri2 = 2, /**< elements that switch something on, after all values */
};

/**
 * Tag of one element of a channel's record. The numbers are fixed: they are keys of the command
 * table and of other programs, and the tags of a value's limits do not follow the order of the
 * record's fields.
 */
enum OrvanElement : int {
    ODT_NO_TAG = -1, /**< the command has no element */
    ODT_CHAN_ENA = 0,
    ODT_CHAN_STAT = 1,
    ODT_SETUP_NO = 2,
    ODT_MODUL_CFG = 3,
    ODT_INIT_RUN = 4,
    ODT_TRG_SRC = 5,
    ODT_TRG_EDGE = 6,
    ODT_TRG_ADV = 7,
    ODT_TRG_COUNT = 8,
    ODT_TRG_COUNT_MIN = 9,
    ODT_TRG_COUNT_MAX = 10,
    ODT_TRG_DELAY = 11,
    ODT_TRG_DELAY_MIN = 12,
    ODT_TRG_DELAY_MAX = 13,
    ODT_TRG_TIMER = 14,
    ODT_TRG_TIMER_TIME = 15,
    ODT_TRG_TIMER_TIME_MIN = 16,
    ODT_TRG_TIMER_TIME_MAX = 17,
    ODT_TRG_INPT_IMP = 18,
    ODT_RF_OUT = 19,
    ODT_FREQ = 20,
    ODT_FREQ_DEFLT = 21,
    ODT_FREQ_MIN = 22,
    ODT_FREQ_MAX = 23,
    ODT_PWR = 24,
    ODT_PWR_DEFLT = 25,
    ODT_PWR_MIN = 26,
    ODT_PWR_MAX = 27,
    ODT_PHASE = 28,
    ODT_PHASE_DEF = 29,
    ODT_PHASE_MIN = 30,
    ODT_PHASE_MAX = 31,
    ODT_REF_OSC_MODE = 32,
    ODT_REF_OSC_FREQ = 33,
    ODT_LIST_STAT = 34,
    ODT_LIST_DEF = 35,
    ODT_PATT_STAT = 36,
    ODT_PATT_DEF = 37,
    ODT_LIST_STEPS_MIN = 38,
    ODT_LIST_STEPS_MAX = 39,
    ODT_LIST_STEPS_DEF = 40,
    ODT_LIST_FREQ_MIN = 41,
    ODT_LIST_FREQ_MAX = 42,
    ODT_LIST_FREQ_DEF = 43,
    ODT_LIST_PWR_MIN = 44,
    ODT_LIST_PWR_MAX = 45,
    ODT_LIST_PWR_DEF = 46,
    ODT_LIST_DWLTIME_MIN = 47,
    ODT_LIST_DWLTIME_MAX = 48,
    ODT_LIST_DWLTIME_DEF = 49,
    ODT_PATT_STEPS_MIN = 50,
    ODT_PATT_STEPS_MAX = 51,
    ODT_PATT_STEPS_DEF = 52,
    ODT_PATT_TIME_MIN = 53,
    ODT_PATT_TIME_MAX = 54,
    ODT_PATT_TIME_DEF = 55,
    ODT_AM_STAT = 56,
    ODT_AM_SRC = 57,
    ODT_AM_FREQ = 58,
    ODT_AM_FREQ_MIN = 59,
    ODT_AM_FREQ_MAX = 60,
    ODT_AM_DEPT = 61,
    ODT_AM_DEPT_MIN = 62,
    ODT_AM_DEPT_MAX = 63,
    ODT_FM_STAT = 64,
    ODT_FM_SRC = 65,
    ODT_FM_FREQ = 66,
    ODT_FM_FREQ_MIN = 67,
    ODT_FM_FREQ_MAX = 68,
    ODT_FM_DEV = 69,
    ODT_FM_DEV_MIN = 70,
    ODT_FM_DEV_MAX = 71,
    ODT_PM_STAT = 72,
    ODT_PM_SRC = 73,
    ODT_PM_FREQ = 74,
    ODT_PM_FREQ_MIN = 75,
    ODT_PM_FREQ_MAX = 76,
    ODT_PM_DEV = 77,
    ODT_PM_DEV_MIN = 78,
    ODT_PM_DEV_MAX = 79,
    ODT_PULS_STAT = 80,
    ODT_PULS_SRC = 81,
    ODT_PULS_FREQ = 82,
    ODT_PULS_FREQ_MIN = 83,
    ODT_PULS_FREQ_MAX = 84,
    ODT_PULS_WIDTH = 85,
    ODT_PULS_WIDTH_MIN = 86,
    ODT_PULS_WIDTH_MAX = 87,
    ODT_FRS_STAT = 88,
    ODT_FRS_START = 89,
    ODT_FRS_START_MIN = 90,
    ODT_FRS_START_MAX = 91,
    ODT_FRS_STOP = 92,
    ODT_FRS_STOP_MIN = 93,
    ODT_FRS_STOP_MAX = 94,
    ODT_FRS_STEPS = 95,
    ODT_FRS_STEPS_MIN = 96,
    ODT_FRS_STEPS_MAX = 97,
    ODT_FRS_STEP_TIME = 98,
    ODT_FRS_STEP_TIME_MIN = 99,
    ODT_FRS_STEP_TIME_MAX = 100,
    ODT_FRS_DIR = 101,
    ODT_PRS_STAT = 102,
    ODT_PRS_START = 103,
    ODT_PRS_START_MIN = 104,
    ODT_PRS_START_MAX = 105,
    ODT_PRS_STOP = 106,
    ODT_PRS_STOP_MIN = 107,
    ODT_PRS_STOP_MAX = 108,
    ODT_PRS_STEPS = 109,
    ODT_PRS_STEPS_MIN = 110,
    ODT_PRS_STEPS_MAX = 111,
    ODT_PRS_STEP_TIME = 112,
    ODT_PRS_STEP_TIME_MIN = 113,
    ODT_PRS_STEP_TIME_MAX = 114,
    ODT_PRS_DIR = 115,
    ODT_INF_MODEL = 116,
    ODT_INF_SERIAL = 117,
    ODT_INF_TYPE = 118,
    ODT_TEMP = 119,
    ODT_BATT = 120,
    ODT_CURRENT_STATUS = 121,
    ODT_CALIB_DATE = 122,
    ODT_OPT = 123,
    ODT_MANUFACT = 124,
    ODT_HARD = 125,
    ODT_FIRM = 126,
    ODT_FPGA = 127,
    ODT_SCPI = 128,
    ODT_IF_NAME = 129,
    ODT_IF_ADDR = 130,
    ODT_IF_MASK = 131,
    ODT_IF_GATE = 132,
    ODT_IF_PORT = 133,
    ODT_IF_DNS1 = 134,
    ODT_IF_DNS2 = 135,
    ODT_IF_MAC = 136,
    ODT_IF_DHCP = 137,
    ODT_BOOT_P = 138,
    ODT_HOST = 139,
    ODT_KEEPALIVE_STATE = 140,
    ODT_KEEPALIVE_TIMEOUT = 141,
    ODT_KEEPALIVE_PROBES = 142,
    ODT_BATT_LOW_ALARM = 143,
};

/** Number of elements, and so of tags from 0 up. */
inline constexpr size_t kOrvanElementCount = ODT_BATT_LOW_ALARM + 1;

/** @name Words of the text fields, as SCPI spells them: the capitals are the short form. */
/** @{ */
inline constexpr const char* ModulationNames[] = {"AM",   "FM",    "PM",   "FRSW",
                                                  "PRSW", "Pulse", "List", "Pattern"};
inline constexpr const char* SweepDirectionToString[] = {"NORMAL", "UPDOWN"};
inline constexpr const char* TriggerSourceToString[] = {"EXTernal", "BUS", "TIMer"};
inline constexpr const char* TriggerEdgeToString[] = {"POSitive", "NEGative"};
inline constexpr const char* TriggerAdvToString[] = {"ONCe", "STEP"};
inline constexpr const char* ModSrcModeToString[] = {"INTernal", "EXTernal"};
/** @} */

struct OC_CHANNEL_DATA {
    OnOff Enabled;
    OnOff State;
    int SetupNo;
    uint32_t modulateCfg;
};

struct OC_RUNMODE_DATA {
    OnOff InitMode;
    char TriggerSrc[kOrvanTextSize];
    char TrigEdge[kOrvanTextSize];
    char TriggerAdvance[kOrvanTextSize];
    int TriggerCount;
    int TriggerCountMin;
    int TriggerCountMax;
    double TriggerDelay;
    double TriggerDelayMin;
    double TriggerDelayMax;
    OnOff TriggerTimer;
    double TriggerTimerTime;
    double TriggerTimerTimeMin;
    double TriggerTimerTimeMax;
    uint32_t TriggerInputImpedance;
};

struct OC_ANALOGOUTPUT_DATA {
    OnOff RfOutput;
    double Frequency;
    double FrequencyDef;
    double FrequencyMax;
    double FrequencyMin;
    double Power;
    double PowerDef;
    double PowerMax;
    double PowerMin;
    double Phase;
    double PhaseDef;
    double PhaseMax;
    double PhaseMin;
    char RefOsc[kOrvanTextSize];
    char RefOscFrequency[kOrvanTextSize];
};

struct OC_LIST_DATA {
    OnOff ListState;
    char ListDefines[kOrvanTextSize];
    OnOff PatternState;
    char PatternDefines[kOrvanTextSize];
    uint32_t ListStepsMax;
    uint32_t ListStepsMin;
    uint32_t ListStepsDef;
    double ListFrequencyMax;
    double ListFrequencyMin;
    double ListFrequencyDef;
    double ListPowerMax;
    double ListPowerMin;
    double ListPowerDef;
    double ListDwellTimeMax;
    double ListDwellTimeMin;
    double ListDwellTimeDef;
    uint32_t PatternStepsMax;
    uint32_t PatternStepsMin;
    uint32_t PatternStepsDef;
    double PatternTimeMax;
    double PatternTimeMin;
    double PatternTimeDef;
};

struct OC_MODULATIONS_DATA {
    OnOff AMState;
    char AMSrcMode[kOrvanTextSize];
    double AMModFreq;
    double AMModFreqMax;
    double AMModFreqMin;
    double AMModeDepth;
    double AMModeDepthMax;
    double AMModeDepthMin;
    OnOff FMState;
    char FMSrcMode[kOrvanTextSize];
    double FMModFreq;
    double FMModFreqMax;
    double FMModFreqMin;
    double FMModeDev;
    double FMModeDevMax;
    double FMModeDevMin;
    OnOff PMState;
    char PMSrcMode[kOrvanTextSize];
    double PMModFreq;
    double PMModFreqMax;
    double PMModFreqMin;
    double PMModeDev;
    double PMModeDevMax;
    double PMModeDevMin;
    OnOff PulseMState;
    char PulseMSrcMode[kOrvanTextSize];
    double PulseMModFreq;
    double PulseMModFreqMax;
    double PulseMModFreqMin;
    double PulseMModeWidth;
    double PulseMModeWidthMax;
    double PulseMModeWidthMin;
    OnOff FRSWeepState;
    double FRSWeepStart;
    double FRSWeepStartMax;
    double FRSWeepStartMin;
    double FRSWeepStop;
    double FRSWeepStopMax;
    double FRSWeepStopMin;
    uint32_t FRSWeepSteps;
    uint32_t FRSWeepStepsMax;
    uint32_t FRSWeepStepsMin;
    double FRSWeepStepTime;
    double FRSWeepStepTimeMax;
    double FRSWeepStepTimeMin;
    char FRSWeepDir[kOrvanTextSize];
    OnOff PRSWeepState;
    double PRSWeepStart;
    double PRSWeepStartMax;
    double PRSWeepStartMin;
    double PRSWeepStop;
    double PRSWeepStopMax;
    double PRSWeepStopMin;
    uint32_t PRSWeepSteps;
    uint32_t PRSWeepStepsMax;
    uint32_t PRSWeepStepsMin;
    double PRSWeepStepTime;
    double PRSWeepStepTimeMax;
    double PRSWeepStepTimeMin;
    char PRSWeepDir[kOrvanTextSize];
};

struct OC_SYSTEM_DATA {
    char Model[kOrvanTextSize];
    char Serial[kOrvanTextSize];
    char type[kOrvanTextSize];
    double Temperature;
    int Battery;
    int CurrentStatus;
    char CalibrationDate[kOrvanTextSize];
    char Options[kOrvanTextSize];
    char Manufacture[kOrvanTextSize];
    char Hardware[kOrvanTextSize];
    char Firmware[kOrvanTextSize];
    char Fpga[kOrvanTextSize];
    char Scpi[kOrvanTextSize];
    char Interface[kOrvanTextSize];
    char Address[kOrvanTextSize];
    char Mask[kOrvanTextSize];
    char GATeway[kOrvanTextSize];
    char Port[kOrvanTextSize];
    char Dns1[kOrvanTextSize];
    char Dns2[kOrvanTextSize];
    char MACaddr[kOrvanTextSize];
    OnOff DHCP;
    OnOff BOOTp;
    char HOSTname[kOrvanTextSize];
    OnOff KEEPaliveState;
    int KEEPaliveTimeout;
    int KEEPaliveProbes;
    int LowLevelBatAlarm;
};

/** Everything the controller stores about one channel. Frequencies in Hz, powers in dBm, times in s. */
struct ORVAN_CONFIG {
    OC_CHANNEL_DATA CHANNEL;
    OC_RUNMODE_DATA RUNMODE;
    OC_ANALOGOUTPUT_DATA ANALOGOUTPUT;
    OC_LIST_DATA LIST;
    OC_MODULATIONS_DATA MODULATIONS;
    OC_SYSTEM_DATA SYSTEM;
};

// The offset of each field is checked where the element table is built.
static_assert(sizeof(ORVAN_CONFIG) == 1816 && alignof(ORVAN_CONFIG) == 8);

/** Location and representation of one element of a record; one row of the element table. */
struct OrvanElementData {
    uint32_t pos;    /**< offset in `ORVAN_CONFIG`; all bits set in the row that ends the table */
    double factor;   /**< stored number = number in the text times this; at least 1 for integers */
    ValueTypes type; /**< form of the stored value */
    uint32_t size;   /**< bytes of the stored value; of the whole field for a text */
    SendOnInit send; /**< when it is sent to a module */
};

static_assert(sizeof(OrvanElementData) == 32 && offsetof(OrvanElementData, pos) == 0 &&
              offsetof(OrvanElementData, factor) == 8 && offsetof(OrvanElementData, type) == 16 &&
              offsetof(OrvanElementData, size) == 20 && offsetof(OrvanElementData, send) == 24);

/**
 * The element table and the file form of a record.
 *
 * The file is a JSON object (RFC 8259) with one object for each section of the record, and in it the
 * fields by name:
 *
 * - A switch is `true` or `false`; one that holds neither 1 nor 0 is its number.
 * - A number is a JSON number with as many digits as it takes to read the same bits back. Values
 *   that JSON cannot express as numbers are strings: an infinity or a not-a-number as its bits,
 *   "0x7ff0000000000000"; a 64-bit integer beyond 2^53 as its decimal digits.
 * - A text holds bytes, each written as the character with that code, U+0001 to U+00FF, so that the
 *   file is valid UTF-8 whatever a client wrote.
 *
 * All operations may run on any number of threads at once; each touches only its arguments.
 */
class OrvanData {
public:
    /** Indexed by tag; the row after the last tag has a `pos` with all bits set. */
    static const OrvanElementData orvanMap[kOrvanElementCount + 1];

    /**
     * Fills a record from a file.
     *
     * A field missing from the file keeps the record's value, and anything else in the file is ignored.
     * A text field is zero-padded.
     *
     * @param path   the file, at most 1 MiB
     * @param config the record
     * @return 0; -1 when an argument is null, the file cannot be read, is not a JSON object, or holds a
     *         value that does not fit its field (wrong type, a fraction or out-of-range value for an integer
     *         field, a text of 32 bytes or more). The record is then unchanged.
     */
    int init_cmd_config(const char* path, ORVAN_CONFIG* config);

    /**
     * Writes a record to a file atomically: at any moment, even after a power failure, the path has either
     * its old contents or all of the new. A text without a terminating zero loses its last byte.
     *
     * @param path   the file to create or replace; its folder must exist
     * @param config the record
     * @return 0 once the file is on the disk; -1 if an argument is null or the file cannot be
     *         written; then the old file is unchanged and nothing else is left in the folder
     */
    int save_cmd_config(const char* path, ORVAN_CONFIG* config);
};

#endif
