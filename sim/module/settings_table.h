/** The module's settings as one table: header, form of the value, unit, limits, value after "*RST". */
#ifndef ORVAN_SIM_MODULE_SETTINGS_TABLE_H
#define ORVAN_SIM_MODULE_SETTINGS_TABLE_H

#include <limits>
#include <span>

#include "scpi/types.h"

namespace sim_module {

enum class SettingForm {
    kNumber,  /**< a quantity in the row's unit */
    kInteger, /**< a whole number; a fraction is rounded */
    kBoolean, /**< ON, OFF or a number in, 1 or 0 out (SCPI-99 7.3) */
    kChoice,  /**< a mnemonic of the row's list, its short form out */
    kText,    /**< up to Settings::kMaxText characters, a string out */
};

enum class SettingRows { kSetAndQuery, kSetOnly, kQueryOnly };

/** As a maximum: the highest frequency of the model. */
inline constexpr double kModelMaximum = std::numeric_limits<double>::infinity();
/** As a minimum: the lowest power of the model. */
inline constexpr double kModelMinimum = -std::numeric_limits<double>::infinity();

/** Lowest and highest quantity of a setting or of a column of tabular data, in the base unit. */
struct Range {
    scpi_unit_t unit;
    double minimum;
    double maximum;
};

inline constexpr Range kFrequencyRange = {SCPI_UNIT_HERTZ, 50e3, kModelMaximum};
inline constexpr Range kPowerRange = {SCPI_UNIT_DBM, kModelMinimum, 15};
inline constexpr Range kStepTimeRange = {SCPI_UNIT_SECOND, 100e-6, 1000};

struct Setting {
    const char* pattern; /**< header of the set form; the query adds a "?" */
    SettingRows rows;
    SettingForm form;
    Range range;
    double initial;                   /**< value after "*RST"; a choice's tag; 1 or 0 of a boolean */
    const scpi_choice_def_t* choices; /**< kChoice: its list; else null */
    std::span<const double> allowed;  /**< kNumber: the only values allowed; empty: all in the range */
};

std::span<const Setting> settings_table();

/** Position of the row with that pattern. The pattern must be in the table. */
size_t setting_index(const char* pattern);

/** Source of triggers (":TRIGger:SOURce"): the tag of BUS. */
inline constexpr int kTriggerBus = 2;

} // namespace sim_module

#endif
