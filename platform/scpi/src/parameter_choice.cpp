#include <algorithm>
#include <charconv>

#include "decimal.h"
#include "parameter_support.h"
#include "scpi/error.h"
#include "scpi/parameter.h"
#include "scpi/parser.h"

using namespace scpi;

namespace {

constexpr scpi_choice_def_t kBooleans[] = {
    {"OFF", 0},
    {"ON", 1},
    {nullptr, -1},
};

/** An integer in any form is looked up by its plain form. */
const scpi_choice_def_t* find_number(const scpi_choice_def_t* options, const scpi_parameter_t& parameter)
{
    Decimal decimal;
    if (parse_decimal(parameter.body, parameter.body_len, &decimal) != 0) {
        return nullptr;
    }
    const Magnitude magnitude = to_magnitude(decimal);
    if (!magnitude.fits || !magnitude.exact || (decimal.negative && magnitude.value != 0)) {
        return nullptr;
    }
    char text[20];
    const char* const end = std::to_chars(text, text + sizeof text, magnitude.value).ptr;
    return find_choice(options, text, static_cast<size_t>(end - text));
}

bool read_bool(scpi_t* context, const scpi_parameter_t& parameter, bool* value)
{
    if (parameter.type == SCPI_TOKEN_CHARACTER) {
        const scpi_choice_def_t* const word = find_choice(kBooleans, parameter.ptr, parameter.len);
        if (word == nullptr) {
            return fail(context, SCPI_ERROR_ILLEGAL_PARAMETER_VALUE);
        }
        *value = word->tag != 0;
        return true;
    }
    if (!SCPI_ParamIsNumber(&parameter, false)) {
        return fail(context, SCPI_ERROR_DATA_TYPE);
    }
    if (parameter.type != SCPI_TOKEN_DECIMAL) {
        *value = std::any_of(parameter.body, parameter.body + parameter.body_len,
                             [](char digit) { return digit != '0'; });
        return true;
    }
    Decimal decimal;
    const int16_t error = parse_decimal(parameter.body, parameter.body_len, &decimal);
    if (error != 0) {
        return fail(context, error);
    }
    *value = to_magnitude(decimal).value != 0;
    return true;
}

} // namespace

const scpi_choice_def_t* scpi::find_choice(const scpi_choice_def_t* options, const char* text, size_t len)
{
    while (options->name != nullptr && !SCPI_Match(options->name, text, len)) {
        ++options;
    }
    return options->name != nullptr ? options : nullptr;
}

scpi_bool_t SCPI_ParamBool(scpi_t* context, scpi_bool_t* value, scpi_bool_t mandatory)
{
    *value = false;
    scpi_parameter_t parameter;
    return SCPI_Parameter(context, &parameter, mandatory) && read_bool(context, parameter, value);
}

scpi_bool_t SCPI_ParamChoice(scpi_t* context, const scpi_choice_def_t* options, int32_t* value,
                             scpi_bool_t mandatory)
{
    *value = 0;
    scpi_parameter_t parameter;
    if (!SCPI_Parameter(context, &parameter, mandatory)) {
        return false;
    }
    if (parameter.type != SCPI_TOKEN_CHARACTER && !SCPI_ParamIsNumber(&parameter, true)) {
        return fail(context, SCPI_ERROR_DATA_TYPE);
    }
    const scpi_choice_def_t* option = find_choice(options, parameter.ptr, parameter.len);
    if (option == nullptr && parameter.type == SCPI_TOKEN_DECIMAL) {
        option = find_number(options, parameter);
    }
    if (option == nullptr) {
        return fail(context, SCPI_ERROR_ILLEGAL_PARAMETER_VALUE);
    }
    *value = option->tag;
    return true;
}

scpi_bool_t SCPI_ChoiceToName(const scpi_choice_def_t* options, int32_t tag, const char** text)
{
    for (; options->name != nullptr; ++options) {
        if (options->tag == tag) {
            *text = options->name;
            return true;
        }
    }
    *text = nullptr;
    return false;
}
