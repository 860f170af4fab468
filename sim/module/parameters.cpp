#include "parameters.h"

#include <cstdio>
#include <numbers>
#include <utility>

#include "scpi/scpi.h"

namespace sim_module {

namespace {

bool convert_unit(scpi_unit_t from, scpi_unit_t to, double& value)
{
    if (from == to || from == SCPI_UNIT_NONE) {
        return true;
    }
    if (from == SCPI_UNIT_DEGREE && to == SCPI_UNIT_RADIAN) {
        value *= std::numbers::pi / 180;
        return true;
    }
    if (from == SCPI_UNIT_RADIAN && to == SCPI_UNIT_DEGREE) {
        value *= 180 / std::numbers::pi;
        return true;
    }
    return false;
}

} // namespace

bool read_quantity(scpi_t* context, const Range& range, double initial, double& value)
{
    scpi_number_t number;
    if (!SCPI_ParamNumber(context, scpi_special_numbers_def, &number, true)) {
        return false;
    }
    if (number.special) {
        switch (number.tag) {
        case SCPI_NUM_MIN:
            value = range.minimum;
            return true;
        case SCPI_NUM_MAX:
            value = range.maximum;
            return true;
        case SCPI_NUM_DEF:
            value = initial;
            return true;
        default:
            SCPI_ErrorPush(context, SCPI_ERROR_ILLEGAL_PARAMETER_VALUE);
            return false;
        }
    }
    if (!convert_unit(number.unit, range.unit, number.value)) {
        SCPI_ErrorPush(context, SCPI_ERROR_INVALID_SUFFIX);
        return false;
    }
    if (!(number.value >= range.minimum && number.value <= range.maximum)) {
        SCPI_ErrorPush(context, SCPI_ERROR_DATA_OUT_OF_RANGE);
        return false;
    }
    value = number.value;
    return true;
}

std::string quantity_text(double value)
{
    char text[32];
    // Adding zero turns a negative zero into zero.
    std::snprintf(text, sizeof text, "%.15G", value + 0.0);
    std::string number = text;
    // A number with an exponent also has a point.
    if (const size_t exponent = number.find('E');
        exponent != std::string::npos && number.find('.') == std::string::npos) {
        number.insert(exponent, ".0");
    }
    return number;
}

void result_quantity(scpi_t* context, double value)
{
    const std::string text = quantity_text(value);
    SCPI_ResultCharacters(context, text.data(), text.size());
}

bool read_text(scpi_t* context, std::string& text, size_t max_length)
{
    std::string buffer(max_length + 1, '\0');
    size_t length = 0;
    if (!SCPI_ParamCopyText(context, buffer.data(), buffer.size(), &length, true)) {
        return false;
    }
    buffer.resize(length);
    // Unprintable characters, and those that split a reply into fields, are not allowed in a name.
    for (const char c : buffer) {
        if (c < 0x20 || c > 0x7E || c == ';') {
            SCPI_ErrorPush(context, SCPI_ERROR_ILLEGAL_PARAMETER_VALUE);
            return false;
        }
    }
    text = std::move(buffer);
    return true;
}

bool end_of_parameters(scpi_t* context)
{
    scpi_parameter_t parameter;
    if (SCPI_Parameter(context, &parameter, false)) {
        SCPI_ErrorPush(context, SCPI_ERROR_PARAMETER_NOT_ALLOWED);
        return false;
    }
    return !SCPI_ParamErrorOccurred(context);
}

} // namespace sim_module
