#include <charconv>
#include <cmath>
#include <limits>
#include <type_traits>

#include "decimal.h"
#include "parameter_support.h"
#include "scpi/error.h"
#include "scpi/extensions.h"
#include "scpi/parameter.h"
#include "scpi/units.h"

using namespace scpi;

namespace {

int base_of(scpi_token_type_t type)
{
    switch (type) {
    case SCPI_TOKEN_HEX:
        return 16;
    case SCPI_TOKEN_OCT:
        return 8;
    case SCPI_TOKEN_BIN:
        return 2;
    default:
        return 10;
    }
}

/** #H #Q #B digits; false beyond 64 bits. */
bool to_bits(const scpi_parameter_t& parameter, uint64_t* value)
{
    *value = 0;
    return std::from_chars(parameter.body, parameter.body + parameter.body_len, *value,
                           base_of(parameter.type))
               .ec == std::errc();
}

template <typename T>
bool to_integer(scpi_t* context, const scpi_parameter_t& parameter, T* value)
{
    *value = 0;
    if (!SCPI_ParamIsNumber(&parameter, false)) {
        return fail(context, not_allowed_error(parameter.type));
    }

    uint64_t magnitude = 0;
    bool negative = false;
    bool fits = false;
    if (parameter.type == SCPI_TOKEN_DECIMAL) {
        Decimal decimal;
        const int16_t error = parse_decimal(parameter.body, parameter.body_len, &decimal);
        if (error != 0) {
            return fail(context, error);
        }
        const Magnitude rounded = to_magnitude(decimal);
        magnitude = rounded.value;
        negative = decimal.negative && magnitude != 0;
        fits = rounded.fits;
    } else {
        fits = to_bits(parameter, &magnitude);
    }

    constexpr uint64_t kMax = static_cast<uint64_t>(std::numeric_limits<T>::max());
    constexpr uint64_t kMin = std::is_signed_v<T> ? kMax + 1 : 0;
    if (!fits || magnitude > (negative ? kMin : kMax)) {
        return fail(context, SCPI_ERROR_DATA_OUT_OF_RANGE);
    }
    *value = static_cast<T>(negative ? uint64_t{0} - magnitude : magnitude);
    return true;
}

template <typename T>
bool to_floating_point(scpi_t* context, const scpi_parameter_t& parameter, int64_t shift, T* value)
{
    *value = 0;
    if (base_of(parameter.type) != 10) {
        uint64_t bits = 0;
        if (!to_bits(parameter, &bits)) {
            return fail(context, SCPI_ERROR_DATA_OUT_OF_RANGE);
        }
        *value = static_cast<T>(bits);
        return true;
    }
    Decimal decimal;
    const int16_t error = parse_decimal(parameter.body, parameter.body_len, &decimal);
    if (error != 0) {
        return fail(context, error);
    }
    return to_floating(decimal, shift, value) || fail(context, SCPI_ERROR_DATA_OUT_OF_RANGE);
}

template <typename T>
bool to_plain_floating_point(scpi_t* context, const scpi_parameter_t& parameter, T* value)
{
    *value = 0;
    if (!SCPI_ParamIsNumber(&parameter, false)) {
        return fail(context, not_allowed_error(parameter.type));
    }
    return to_floating_point(context, parameter, 0, value);
}

/** A multiplier that is a power of ten moves the decimal point, so that 1.001 KHZ is exactly 1001
 *  and not a neighbouring number. */
bool power_of_ten(double multiplier, int64_t* exponent)
{
    char text[32];
    const char* const end =
        std::to_chars(text, text + sizeof text, multiplier, std::chars_format::scientific).ptr;
    if (text[0] != '1' || text[1] != 'e') {
        return false;
    }
    const char* const digits = text[2] == '+' ? text + 3 : text + 2;
    return std::from_chars(digits, end, *exponent).ec == std::errc();
}

bool read_with_unit(scpi_t* context, const scpi_parameter_t& parameter, scpi_number_t* value)
{
    if (context->units == nullptr) {
        return fail(context, SCPI_ERROR_SUFFIX_NOT_ALLOWED);
    }
    const scpi_unit_def_t* const unit = SCPI_FindUnit(context->units, parameter.suffix, parameter.suffix_len);
    if (unit == nullptr) {
        return fail(context, SCPI_ERROR_INVALID_SUFFIX);
    }
    value->unit = unit->unit;

    int64_t shift = 0;
    if (power_of_ten(unit->mult, &shift)) {
        return to_floating_point(context, parameter, shift, &value->value);
    }
    if (!to_floating_point(context, parameter, 0, &value->value)) {
        return false;
    }
    value->value *= unit->mult;
    return std::isfinite(value->value) || fail(context, SCPI_ERROR_DATA_OUT_OF_RANGE);
}

bool read_number(scpi_t* context, const scpi_choice_def_t* special, const scpi_parameter_t& parameter,
                 scpi_number_t* value)
{
    if (parameter.type == SCPI_TOKEN_CHARACTER && special != nullptr) {
        const scpi_choice_def_t* const word = find_choice(special, parameter.ptr, parameter.len);
        if (word == nullptr) {
            return fail(context, SCPI_ERROR_ILLEGAL_PARAMETER_VALUE);
        }
        value->special = true;
        value->tag = word->tag;
        return true;
    }
    if (!SCPI_ParamIsNumber(&parameter, true)) {
        return fail(context, not_allowed_error(parameter.type));
    }
    value->base = static_cast<int8_t>(base_of(parameter.type));
    if (parameter.type == SCPI_TOKEN_DECIMAL_SUFFIX) {
        return read_with_unit(context, parameter, value);
    }
    return to_floating_point(context, parameter, 0, &value->value);
}

template <typename T, typename Convert>
bool read_parameter(scpi_t* context, T* value, bool mandatory, Convert convert)
{
    *value = 0;
    scpi_parameter_t parameter;
    return SCPI_Parameter(context, &parameter, mandatory) && convert(context, &parameter, value);
}

} // namespace

const scpi_choice_def_t scpi_special_numbers_def[] = {
    {"MINimum", SCPI_NUM_MIN},  {"MAXimum", SCPI_NUM_MAX},
    {"DEFault", SCPI_NUM_DEF},  {"UP", SCPI_NUM_UP},
    {"DOWN", SCPI_NUM_DOWN},    {"NAN", SCPI_NUM_NAN},
    {"INFinity", SCPI_NUM_INF}, {"NINF", SCPI_NUM_NINF},
    {"AUTO", SCPI_NUM_AUTO},    {nullptr, -1},
};

scpi_bool_t SCPI_ParamToInt32(scpi_t* context, const scpi_parameter_t* parameter, int32_t* value)
{
    return to_integer(context, *parameter, value);
}

scpi_bool_t SCPI_ParamToUInt32(scpi_t* context, const scpi_parameter_t* parameter, uint32_t* value)
{
    return to_integer(context, *parameter, value);
}

scpi_bool_t SCPI_ParamToInt64(scpi_t* context, const scpi_parameter_t* parameter, int64_t* value)
{
    return to_integer(context, *parameter, value);
}

scpi_bool_t SCPI_ParamToUInt64(scpi_t* context, const scpi_parameter_t* parameter, uint64_t* value)
{
    return to_integer(context, *parameter, value);
}

scpi_bool_t SCPI_ParamToFloat(scpi_t* context, const scpi_parameter_t* parameter, float* value)
{
    return to_plain_floating_point(context, *parameter, value);
}

scpi_bool_t SCPI_ParamToDouble(scpi_t* context, const scpi_parameter_t* parameter, double* value)
{
    return to_plain_floating_point(context, *parameter, value);
}

scpi_bool_t SCPI_ParamInt32(scpi_t* context, int32_t* value, scpi_bool_t mandatory)
{
    return read_parameter(context, value, mandatory, SCPI_ParamToInt32);
}

scpi_bool_t SCPI_ParamUInt32(scpi_t* context, uint32_t* value, scpi_bool_t mandatory)
{
    return read_parameter(context, value, mandatory, SCPI_ParamToUInt32);
}

scpi_bool_t SCPI_ParamInt64(scpi_t* context, int64_t* value, scpi_bool_t mandatory)
{
    return read_parameter(context, value, mandatory, SCPI_ParamToInt64);
}

scpi_bool_t SCPI_ParamUInt64(scpi_t* context, uint64_t* value, scpi_bool_t mandatory)
{
    return read_parameter(context, value, mandatory, SCPI_ParamToUInt64);
}

scpi_bool_t SCPI_ParamFloat(scpi_t* context, float* value, scpi_bool_t mandatory)
{
    return read_parameter(context, value, mandatory, SCPI_ParamToFloat);
}

scpi_bool_t SCPI_ParamDouble(scpi_t* context, double* value, scpi_bool_t mandatory)
{
    return read_parameter(context, value, mandatory, SCPI_ParamToDouble);
}

scpi_bool_t SCPI_ParamNumber(scpi_t* context, const scpi_choice_def_t* special, scpi_number_t* value,
                             scpi_bool_t mandatory)
{
    constexpr scpi_number_t kNothing = {false, SCPI_NUM_NUMBER, 0, SCPI_UNIT_NONE, 10};
    *value = kNothing;
    scpi_parameter_t parameter;
    if (!SCPI_Parameter(context, &parameter, mandatory)) {
        return false;
    }
    if (read_number(context, special, parameter, value)) {
        return true;
    }
    *value = kNothing;
    return false;
}
