#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstddef>
#include <string>
#include <utility>

#include "handlers.h"
#include "instrument.h"
#include "parameters.h"
#include "scpi/scpi.h"
#include "settings_table.h"

namespace sim_module {

namespace {

constexpr scpi_choice_def_t kLimits[] = {
    {"MINimum", SCPI_NUM_MIN}, {"MAXimum", SCPI_NUM_MAX}, {"DEFault", SCPI_NUM_DEF}, {nullptr, -1}};

/** The setting of the current command. */
struct Target {
    explicit Target(scpi_t* context)
        : settings(instrument_of(context).settings()), index(static_cast<size_t>(SCPI_CmdTag(context))),
          row(settings_table()[index])
    {
    }

    Settings& settings;
    size_t index;
    const Setting& row;
};

bool read_value(scpi_t* context, const Target& target, double& value)
{
    const Setting& row = target.row;
    if (row.form == SettingForm::kBoolean) {
        scpi_bool_t on = false;
        const bool read = SCPI_ParamBool(context, &on, true);
        value = on ? 1 : 0;
        return read;
    }
    if (row.form == SettingForm::kChoice) {
        int32_t tag = 0;
        const bool read = SCPI_ParamChoice(context, row.choices, &tag, true);
        value = tag;
        return read;
    }
    if (!read_quantity(context, target.settings.resolve(row.range), row.initial, value)) {
        return false;
    }
    if (row.form == SettingForm::kInteger) {
        value = std::round(value);
    }
    if (!row.allowed.empty() &&
        std::find(row.allowed.begin(), row.allowed.end(), value) == row.allowed.end()) {
        SCPI_ErrorPush(context, SCPI_ERROR_ILLEGAL_PARAMETER_VALUE);
        return false;
    }
    return true;
}

std::string short_form(const char* mnemonic)
{
    std::string text;
    for (const char* c = mnemonic; *c != '\0'; ++c) {
        if (!std::islower(static_cast<unsigned char>(*c))) {
            text += *c;
        }
    }
    return text;
}

scpi_result_t query_quantity(scpi_t* context, const Target& target)
{
    const Range range = target.settings.resolve(target.row.range);
    double value = target.settings.number(target.index);
    int32_t limit = SCPI_NUM_NUMBER;
    if (SCPI_ParamChoice(context, kLimits, &limit, false)) {
        if (limit == SCPI_NUM_MIN) {
            value = range.minimum;
        } else if (limit == SCPI_NUM_MAX) {
            value = range.maximum;
        } else {
            value = target.row.initial;
        }
    } else if (SCPI_ParamErrorOccurred(context)) {
        return SCPI_RES_ERR;
    }
    if (!end_of_parameters(context)) {
        return SCPI_RES_ERR;
    }
    result_quantity(context, value);
    return SCPI_RES_OK;
}

} // namespace

scpi_result_t set_setting(scpi_t* context)
{
    const Target target(context);
    if (target.row.form == SettingForm::kText) {
        std::string text;
        if (!read_text(context, text, Settings::kMaxText) || !end_of_parameters(context)) {
            return SCPI_RES_ERR;
        }
        target.settings.set_text(target.index, std::move(text));
        return SCPI_RES_OK;
    }
    double value = 0;
    if (!read_value(context, target, value) || !end_of_parameters(context)) {
        return SCPI_RES_ERR;
    }
    target.settings.set_number(target.index, value);
    return SCPI_RES_OK;
}

scpi_result_t query_setting(scpi_t* context)
{
    const Target target(context);
    const double value = target.settings.number(target.index);
    switch (target.row.form) {
    case SettingForm::kNumber:
    case SettingForm::kInteger:
        return query_quantity(context, target);
    case SettingForm::kBoolean:
        SCPI_ResultBool(context, value != 0);
        break;
    case SettingForm::kChoice: {
        const char* name = "";
        SCPI_ChoiceToName(target.row.choices, static_cast<int32_t>(value), &name);
        SCPI_ResultMnemonic(context, short_form(name).c_str());
        break;
    }
    case SettingForm::kText:
        SCPI_ResultText(context, target.settings.text(target.index).c_str());
        break;
    }
    return SCPI_RES_OK;
}

} // namespace sim_module
