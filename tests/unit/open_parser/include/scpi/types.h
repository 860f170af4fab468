/**
 * Types of the open parser library, as far as the controller library uses them. Written to compile against: a
 * shape that is not certain is the narrower one, an enumeration for the results and `int` for a length.
 */
#ifndef ORVAN_TESTS_OPEN_PARSER_TYPES_H
#define ORVAN_TESTS_OPEN_PARSER_TYPES_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef bool scpi_bool_t;
typedef enum { SCPI_RES_OK = 1, SCPI_RES_ERR = -1 } scpi_result_t;
typedef uint16_t scpi_reg_val_t;
typedef enum { SCPI_CTRL_SRQ = 1, SCPI_CTRL_GTL } scpi_ctrl_name_t;

typedef struct scpi_context scpi_t;

typedef scpi_result_t (*scpi_command_callback_t)(scpi_t* context);
typedef int (*scpi_error_callback_t)(scpi_t* context, int_fast16_t err);
typedef size_t (*scpi_write_t)(scpi_t* context, const char* data, size_t len);
typedef scpi_result_t (*scpi_write_control_t)(scpi_t* context, scpi_ctrl_name_t ctrl, scpi_reg_val_t val);

typedef struct {
    const char* pattern;
    scpi_command_callback_t callback;
    int32_t tag;
} scpi_command_t;

typedef struct {
    scpi_error_callback_t error;
    scpi_write_t write;
    scpi_write_control_t control;
    scpi_command_callback_t flush;
    scpi_command_callback_t reset;
} scpi_interface_t;

typedef struct {
    const char* name;
    int32_t tag;
} scpi_choice_def_t;

typedef struct scpi_unit_def scpi_unit_def_t;

typedef struct {
    int16_t error_code;
    char* device_dependent_info;
} scpi_error_t;

typedef struct {
    size_t length;
    size_t position;
    char* data;
} scpi_buffer_t;

typedef struct {
    size_t length;
    size_t position;
    const char* data;
} scpi_const_buffer_t;

typedef struct {
    char* buffer;
    char* pos;
    int len;
} lex_state_t;

typedef struct {
    lex_state_t lex_state;
    scpi_const_buffer_t cmd_raw;
} scpi_param_list_t;

struct scpi_context {
    const scpi_command_t* cmdlist;
    scpi_buffer_t buffer;
    scpi_param_list_t param_list;
    scpi_interface_t* interface;
    size_t arbitrary_remaining;
    void* user_context;
};

#ifdef __cplusplus
}
#endif

#endif
