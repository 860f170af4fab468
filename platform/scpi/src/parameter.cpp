#include "scpi/parameter.h"

#include "chars.h"
#include "lexer.h"
#include "mnemonic.h"
#include "parameter_support.h"
#include "scpi/error.h"

using namespace scpi;

namespace {

/** Character data and suffixes have the same limit as mnemonics (IEEE 488.2 7.7.1.4, 7.7.3.4). */
constexpr size_t kMaxMnemonic = kLongestMnemonic;

const char* parameters_end(const scpi_t* context)
{
    const lex_state_t& state = context->param_list.lex_state;
    return state.buffer + state.len;
}

/** Start of the next element; null if there is none, with the error queued if that is one. */
const char* next_element(scpi_t* context, bool mandatory)
{
    const char* const end = parameters_end(context);
    const char* p = skip_space(context->param_list.lex_state.pos, end);
    if (p >= end) {
        if (mandatory) {
            fail(context, SCPI_ERROR_MISSING_PARAMETER);
        }
        return nullptr;
    }
    if (context->input_count == 0) {
        return p;
    }
    if (*p != ',') {
        fail(context, SCPI_ERROR_INVALID_SEPARATOR);
        return nullptr;
    }
    return skip_space(p + 1, end);
}

void element_read(scpi_t* context, const char* next)
{
    lex_state_t& state = context->param_list.lex_state;
    state.pos = state.buffer + (next - state.buffer);
    ++context->input_count;
}

int16_t length_error(const scpi_parameter_t& parameter)
{
    if (parameter.type == SCPI_TOKEN_CHARACTER && parameter.len > kMaxMnemonic) {
        return SCPI_ERROR_CHARACTER_DATA_TOO_LONG;
    }
    if (parameter.type == SCPI_TOKEN_DECIMAL_SUFFIX && parameter.suffix_len > kMaxMnemonic) {
        return SCPI_ERROR_SUFFIX_TOO_LONG;
    }
    return 0;
}

bool is_string(const scpi_parameter_t& parameter)
{
    return parameter.type == SCPI_TOKEN_STRING_SINGLE || parameter.type == SCPI_TOKEN_STRING_DOUBLE;
}

/** Copies up to `size` bytes of the text, replacing each pair of `skip_doubled` with one; returns the total
 *  length. */
size_t copy_text(const char* text, size_t len, char skip_doubled, char* buffer, size_t size)
{
    size_t copied = 0;
    for (size_t i = 0; i < len; ++i) {
        if (copied < size) {
            buffer[copied] = text[i];
        }
        ++copied;
        if (skip_doubled != '\0' && text[i] == skip_doubled) {
            ++i;
        }
    }
    return copied;
}

/** Finds the end of an unquoted text; returns the number of its error, or 0. */
int16_t scan_unquoted(const char* p, const char* end, const char** next)
{
    const char* const start = p;
    while (p < end && *p != ',' && !is_space(*p)) {
        if (*p == '"' || *p == '\'') {
            return SCPI_ERROR_INVALID_STRING_DATA;
        }
        ++p;
    }
    if (p == start) {
        return SCPI_ERROR_SYNTAX;
    }
    *next = p;
    p = skip_space(p, end);
    return p == end || *p == ',' ? 0 : SCPI_ERROR_INVALID_SEPARATOR;
}

} // namespace

int16_t scpi::not_allowed_error(scpi_token_type_t type)
{
    switch (type) {
    case SCPI_TOKEN_CHARACTER:
        return SCPI_ERROR_CHARACTER_DATA_NOT_ALLOWED;
    case SCPI_TOKEN_DECIMAL:
    case SCPI_TOKEN_HEX:
    case SCPI_TOKEN_OCT:
    case SCPI_TOKEN_BIN:
        return SCPI_ERROR_NUMERIC_DATA_NOT_ALLOWED;
    case SCPI_TOKEN_DECIMAL_SUFFIX:
        return SCPI_ERROR_SUFFIX_NOT_ALLOWED;
    case SCPI_TOKEN_STRING_SINGLE:
    case SCPI_TOKEN_STRING_DOUBLE:
        return SCPI_ERROR_STRING_DATA_NOT_ALLOWED;
    case SCPI_TOKEN_BLOCK:
        return SCPI_ERROR_BLOCK_DATA_NOT_ALLOWED;
    case SCPI_TOKEN_EXPRESSION:
        return SCPI_ERROR_EXPRESSION_DATA_NOT_ALLOWED;
    case SCPI_TOKEN_INVALID:
        break;
    }
    return SCPI_ERROR_DATA_TYPE;
}

scpi_bool_t SCPI_Parameter(scpi_t* context, scpi_parameter_t* parameter, scpi_bool_t mandatory)
{
    *parameter = {};
    const char* const p = next_element(context, mandatory);
    if (p == nullptr) {
        return false;
    }
    scpi_parameter_t element;
    const char* next = nullptr;
    int16_t error = lex_element(p, parameters_end(context), &element, &next);
    if (error == 0) {
        error = length_error(element);
    }
    if (error != 0) {
        return fail(context, error);
    }
    element_read(context, next);
    *parameter = element;
    return true;
}

scpi_bool_t SCPI_ParamIsValid(const scpi_parameter_t* parameter)
{
    return parameter->type != SCPI_TOKEN_INVALID;
}

scpi_bool_t SCPI_ParamIsNumber(const scpi_parameter_t* parameter, scpi_bool_t suffix_allowed)
{
    switch (parameter->type) {
    case SCPI_TOKEN_DECIMAL:
    case SCPI_TOKEN_HEX:
    case SCPI_TOKEN_OCT:
    case SCPI_TOKEN_BIN:
        return true;
    case SCPI_TOKEN_DECIMAL_SUFFIX:
        return suffix_allowed;
    default:
        return false;
    }
}

scpi_bool_t SCPI_ParamErrorOccurred(const scpi_t* context)
{
    return context->cmd_error;
}

scpi_bool_t SCPI_ParamCharacters(scpi_t* context, const char** value, size_t* len, scpi_bool_t mandatory)
{
    *value = nullptr;
    *len = 0;
    scpi_parameter_t parameter;
    if (!SCPI_Parameter(context, &parameter, mandatory)) {
        return false;
    }
    if (parameter.type != SCPI_TOKEN_CHARACTER && !is_string(parameter)) {
        return fail(context, not_allowed_error(parameter.type));
    }
    *value = parameter.body;
    *len = parameter.body_len;
    return true;
}

scpi_bool_t SCPI_ParamCopyText(scpi_t* context, char* buffer, size_t size, size_t* len, scpi_bool_t mandatory)
{
    if (len != nullptr) {
        *len = 0;
    }
    if (size > 0) {
        buffer[0] = '\0';
    }
    const char* const p = next_element(context, mandatory);
    if (p == nullptr) {
        return false;
    }

    const char* const end = parameters_end(context);
    const char* text = p;
    const char* text_end = nullptr;
    const char* next = nullptr;
    char quote = '\0';
    if (p < end && (*p == '"' || *p == '\'' || *p == '#' || *p == '(')) {
        scpi_parameter_t parameter;
        int16_t error = lex_element(p, end, &parameter, &next);
        if (error == 0 && !is_string(parameter)) {
            error = not_allowed_error(parameter.type);
        }
        if (error != 0) {
            return fail(context, error);
        }
        quote = *p;
        text = parameter.body;
        text_end = parameter.body + parameter.body_len;
    } else {
        const int16_t error = scan_unquoted(p, end, &text_end);
        if (error != 0) {
            return fail(context, error);
        }
        next = text_end;
    }
    element_read(context, next);

    const size_t room = size > 0 ? size - 1 : 0;
    const size_t copied = copy_text(text, static_cast<size_t>(text_end - text), quote, buffer, room);
    if (copied > room || size == 0) {
        if (size > 0) {
            buffer[0] = '\0';
        }
        return fail(context, SCPI_ERROR_TOO_MUCH_DATA);
    }
    buffer[copied] = '\0';
    if (len != nullptr) {
        *len = copied;
    }
    return true;
}

scpi_bool_t SCPI_ParamArbitraryBlock(scpi_t* context, const char** data, size_t* len, scpi_bool_t mandatory)
{
    *data = nullptr;
    *len = 0;
    scpi_parameter_t parameter;
    if (!SCPI_Parameter(context, &parameter, mandatory)) {
        return false;
    }
    if (parameter.type != SCPI_TOKEN_BLOCK) {
        return fail(context, not_allowed_error(parameter.type));
    }
    *data = parameter.body;
    *len = parameter.body_len;
    return true;
}
