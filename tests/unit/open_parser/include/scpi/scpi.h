/**
 * Functions of the open parser library that the controller library calls.
 */
#ifndef ORVAN_TESTS_OPEN_PARSER_SCPI_H
#define ORVAN_TESTS_OPEN_PARSER_SCPI_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

extern const scpi_unit_def_t scpi_units_def[];

/* The parser */
void SCPI_Init(scpi_t* context, const scpi_command_t* commands, scpi_interface_t* interface,
               const scpi_unit_def_t* units, const char* idn1, const char* idn2, const char* idn3,
               const char* idn4, char* input_buffer, size_t input_buffer_length,
               scpi_error_t* error_queue_data, int16_t error_queue_size);
scpi_bool_t SCPI_Input(scpi_t* context, const char* data, int len);
scpi_bool_t SCPI_Match(const char* pattern, const char* header, size_t len);
int32_t SCPI_CmdTag(scpi_t* context);

/* Errors. A parser library that has no name for one of these numbers (SCPI-99 21.8.9 to 21.8.12) needs it
 * from parser_library.h. */
enum {
    SCPI_ERROR_PARAMETER_NOT_ALLOWED = -108,
    SCPI_ERROR_EXECUTION = -200,
    SCPI_ERROR_PARAMETER = -220,
    SCPI_ERROR_TOO_MUCH_DATA = -223,
    SCPI_ERROR_DATA_CORRUPT_OR_STALE = -230,
    SCPI_ERROR_FILE_NAME_NOT_FOUND = -256,
    SCPI_ERROR_SYSTEM = -310,
    SCPI_ERROR_COMMUNICATION = -360,
    SCPI_ERROR_QUERY = -400
};
void SCPI_ErrorPush(scpi_t* context, int_fast16_t err);
void SCPI_ErrorPushEx(scpi_t* context, int_fast16_t err, char* info, size_t info_len);
const char* SCPI_ErrorTranslate(int_fast16_t err);

/* Parameters. A copied text has a place for its size. */
scpi_bool_t SCPI_ParamBool(scpi_t* context, scpi_bool_t* value, scpi_bool_t mandatory);
scpi_bool_t SCPI_ParamChoice(scpi_t* context, const scpi_choice_def_t* options, int32_t* value,
                             scpi_bool_t mandatory);
scpi_bool_t SCPI_ChoiceToName(const scpi_choice_def_t* options, int32_t tag, const char** text);
scpi_bool_t SCPI_ParamUInt32(scpi_t* context, uint32_t* value, scpi_bool_t mandatory);
scpi_bool_t SCPI_ParamArbitraryBlock(scpi_t* context, const char** data, size_t* len, scpi_bool_t mandatory);
scpi_bool_t SCPI_ParamCopyText(scpi_t* context, char* buffer, size_t size, size_t* len, scpi_bool_t mandatory)
    __attribute__((nonnull));

/* Results */
size_t SCPI_ResultCharacters(scpi_t* context, const char* data, size_t len);
size_t SCPI_ResultBool(scpi_t* context, scpi_bool_t value);
size_t SCPI_ResultUInt32Base(scpi_t* context, uint32_t value, int8_t base);
size_t SCPI_ResultArbitraryBlock(scpi_t* context, const void* data, size_t len);

/* Row handlers */
scpi_result_t SCPI_CoreIdnQ(scpi_t* context);
scpi_result_t SCPI_SystemVersionQ(scpi_t* context);
scpi_result_t SCPI_StatusQuestionableEventQ(scpi_t* context);
scpi_result_t SCPI_StatusQuestionableEnable(scpi_t* context);
scpi_result_t SCPI_StatusQuestionableEnableQ(scpi_t* context);
scpi_result_t SCPI_StatusOperationEventQ(scpi_t* context);
scpi_result_t SCPI_StatusOperationConditionQ(scpi_t* context);
scpi_result_t SCPI_StatusOperationEnable(scpi_t* context);
scpi_result_t SCPI_StatusOperationEnableQ(scpi_t* context);
scpi_result_t SCPI_StatusPreset(scpi_t* context);

#ifdef __cplusplus
}
#endif

#endif
