/**
 * Types of the SCPI parser: the context, the command table's row, the callbacks, the units.
 *
 * All of it is plain C. A context is used by one thread at a time; the caller must ensure this.
 */
#ifndef SCPI_TYPES_H
#define SCPI_TYPES_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef bool scpi_bool_t;
typedef int scpi_result_t;
typedef uint16_t scpi_reg_val_t;

/** Results of a command handler and of the interface callbacks. */
enum { SCPI_RES_OK = 1, SCPI_RES_ERR = -1 };

/** Status registers (SCPI-99 20, IEEE 488.2 11). */
typedef enum {
    SCPI_REG_STB = 0, /**< status byte */
    SCPI_REG_SRE,     /**< service request enable */
    SCPI_REG_ESR,     /**< standard event status */
    SCPI_REG_ESE,     /**< standard event status enable */
    SCPI_REG_OPER,    /**< operation event */
    SCPI_REG_OPERE,   /**< operation enable */
    SCPI_REG_OPERC,   /**< operation condition */
    SCPI_REG_QUES,    /**< questionable event */
    SCPI_REG_QUESE,   /**< questionable enable */
    SCPI_REG_QUESC,   /**< questionable condition */
    SCPI_REG_COUNT
} scpi_reg_name_t;

/** Status byte bits (SCPI-99 20.2). */
enum {
    STB_R01 = 0x01,
    STB_PRO = 0x02,
    STB_QMA = 0x04,
    STB_QES = 0x08,
    STB_MAV = 0x10,
    STB_ESR = 0x20,
    STB_SRQ = 0x40,
    STB_OPS = 0x80
};

/** Standard event status bits (IEEE 488.2 11.5.1.1). */
enum {
    ESR_OPC = 0x01,
    ESR_REQ = 0x02,
    ESR_QERR = 0x04,
    ESR_DER = 0x08,
    ESR_EER = 0x10,
    ESR_CER = 0x20,
    ESR_URQ = 0x40,
    ESR_PON = 0x80
};

typedef enum {
    SCPI_CTRL_SRQ = 1, /**< service request: a bit enabled in SRE became set */
    SCPI_CTRL_GTL,     /**< go to local */
    SCPI_CTRL_SDC,     /**< selected device clear */
    SCPI_CTRL_PPC,     /**< parallel poll configure */
    SCPI_CTRL_GET,     /**< group execute trigger */
    SCPI_CTRL_TCT,     /**< take control */
    SCPI_CTRL_LLO,     /**< local lockout */
    SCPI_CTRL_DCL,     /**< device clear */
    SCPI_CTRL_PPU,     /**< parallel poll unconfigure */
    SCPI_CTRL_SPE,     /**< serial poll enable */
    SCPI_CTRL_SPD,     /**< serial poll disable */
    SCPI_CTRL_MLA,     /**< my local address */
    SCPI_CTRL_UNL,     /**< unlisten */
    SCPI_CTRL_MTA,     /**< my talk address */
    SCPI_CTRL_UNT,     /**< untalk */
    SCPI_CTRL_MSA      /**< my secondary address */
} scpi_ctrl_name_t;

typedef struct scpi_parser_context scpi_t;

typedef scpi_result_t (*scpi_command_callback_t)(scpi_t* context);
typedef size_t (*scpi_write_t)(scpi_t* context, const char* data, size_t len);
typedef scpi_result_t (*scpi_write_control_t)(scpi_t* context, scpi_ctrl_name_t ctrl, scpi_reg_val_t val);
typedef int (*scpi_error_callback_t)(scpi_t* context, int_fast16_t err);
typedef scpi_result_t (*scpi_flush_t)(scpi_t* context);
typedef scpi_result_t (*scpi_reset_t)(scpi_t* context);

/** One row of a command table. The table ends with a row whose pattern is null. */
typedef struct {
    const char* pattern; /**< ":NODe[:OPTional]:LAST?"; upper case is the short form, "[]" optional */
    scpi_command_callback_t callback;
    int32_t tag; /**< free for the application; SCPI_CmdTag returns it to the handler */
} scpi_command_t;

/** The five callbacks. Any of them may be null; a null `write` discards output. */
typedef struct {
    scpi_error_callback_t error; /**< an error has entered the queue */
    scpi_write_t write;          /**< output; returns the bytes accepted */
    scpi_write_control_t control;
    scpi_flush_t flush; /**< the end of one program message; called once for each */
    scpi_reset_t reset; /**< called by SCPI_CoreRst */
} scpi_interface_t;

typedef enum {
    SCPI_UNIT_NONE = 0,
    SCPI_UNIT_VOLT,
    SCPI_UNIT_AMPER,
    SCPI_UNIT_OHM,
    SCPI_UNIT_HERTZ,
    SCPI_UNIT_CELSIUS,
    SCPI_UNIT_SECOND,
    SCPI_UNIT_WATT,
    SCPI_UNIT_DBM,
    SCPI_UNIT_DECIBEL,
    SCPI_UNIT_RADIAN,
    SCPI_UNIT_DEGREE,
    SCPI_UNIT_PERCENT
} scpi_unit_t;

/** One spelling of a unit, multiplier included (IEEE 488.2 7.7.3). The list ends with a null name. */
typedef struct {
    const char* name; /**< upper case, "KHZ" */
    scpi_unit_t unit;
    double mult; /**< factor to the base unit */
} scpi_unit_def_t;

/** Mnemonic of a choice list, a pattern such as "INTernal". The list ends with a null name. */
typedef struct {
    const char* name;
    int32_t tag;
} scpi_choice_def_t;

/** Special numbers: MINimum, MAXimum etc. (SCPI-99 7.2.1). */
typedef enum {
    SCPI_NUM_NUMBER = 0,
    SCPI_NUM_MIN,
    SCPI_NUM_MAX,
    SCPI_NUM_DEF,
    SCPI_NUM_UP,
    SCPI_NUM_DOWN,
    SCPI_NUM_NAN,
    SCPI_NUM_INF,
    SCPI_NUM_NINF,
    SCPI_NUM_AUTO
} scpi_special_number_t;

typedef struct {
    scpi_bool_t special; /**< `tag` is valid, else `value` */
    int32_t tag;         /**< an scpi_special_number_t, or the tag of the caller's own list */
    double value;        /**< in the base unit */
    scpi_unit_t unit;    /**< the unit as written, SCPI_UNIT_NONE if there was none */
    int8_t base;         /**< 10, 16, 8 or 2: how the number was written */
} scpi_number_t;

/** Kinds of program data element (IEEE 488.2 7.7). */
typedef enum {
    SCPI_TOKEN_INVALID = 0,
    SCPI_TOKEN_CHARACTER,      /**< character program data, 7.7.1 */
    SCPI_TOKEN_DECIMAL,        /**< decimal numeric without suffix, 7.7.2 */
    SCPI_TOKEN_DECIMAL_SUFFIX, /**< decimal numeric with suffix, 7.7.3 */
    SCPI_TOKEN_HEX,            /**< "#H", 7.7.4 */
    SCPI_TOKEN_OCT,            /**< "#Q", 7.7.4 */
    SCPI_TOKEN_BIN,            /**< "#B", 7.7.4 */
    SCPI_TOKEN_STRING_SINGLE,  /**< "'", 7.7.5 */
    SCPI_TOKEN_STRING_DOUBLE,  /**< '"', 7.7.5 */
    SCPI_TOKEN_BLOCK,          /**< definite or indefinite block, 7.7.6 */
    SCPI_TOKEN_EXPRESSION      /**< "(...)", 7.7.7 */
} scpi_token_type_t;

/** One program data element in the input; the pointers are into the input buffer. */
typedef struct {
    scpi_token_type_t type;
    const char* ptr; /**< the element, delimiters (quotes, block header, parentheses) included */
    size_t len;
    const char* body; /**< contents between the delimiters; digits only for #H #Q #B */
    size_t body_len;
    const char* suffix; /**< DECIMAL_SUFFIX: the unit's text */
    size_t suffix_len;
} scpi_parameter_t;

/** One entry of the error queue (SCPI-99 21.8). */
typedef struct {
    int16_t error_code;
    char* device_dependent_info; /**< heap copy of the info text, null if none */
} scpi_error_t;

typedef struct {
    size_t length;   /**< capacity */
    size_t position; /**< bytes held */
    char* data;
} scpi_buffer_t;

typedef struct {
    char* buffer; /**< where the current command's parameter text starts */
    char* pos;    /**< how far it has been read */
    size_t len;   /**< length of the parameter text, excluding surrounding white space */
} lex_state_t;

typedef struct {
    size_t position;
    size_t length;
    char* data;
} scpi_const_buffer_t;

typedef struct {
    const scpi_command_t* cmd; /**< the current row */
    lex_state_t lex_state;
    scpi_const_buffer_t cmd_raw; /**< the header as received, compound path applied, in the input buffer */
} scpi_param_list_t;

/** State of the message framer (see extensions.h). Zeroed at the start of a message. */
typedef struct {
    uint8_t state;
    char quote;          /**< the open quote */
    uint8_t digits_left; /**< digits of a block's length still to come */
    uint32_t depth;      /**< open parentheses */
    uint64_t block_left; /**< bytes of a definite block still to come */
} scpi_framer_t;

struct scpi_parser_context {
    const scpi_command_t* cmdlist;
    scpi_buffer_t buffer;
    scpi_param_list_t param_list;
    const scpi_interface_t* interface;
    int_fast16_t output_count;  /**< results of the current command */
    int_fast16_t input_count;   /**< parameters read by the current command */
    scpi_bool_t cmd_error;      /**< the current command has queued an error */
    size_t arbitrary_remaining; /**< bytes of the result block still to be written */
    scpi_error_t* error_queue;  /**< ring of `error_queue_size` entries */
    int16_t error_queue_size;
    int16_t error_queue_first;
    int16_t error_queue_count;
    scpi_reg_val_t registers[SCPI_REG_COUNT];
    const scpi_unit_def_t* units;
    const char* idn[4]; /**< read at each "*IDN?"; owned by the caller */
    void* user_context; /**< for the application's use */

    /* Private to the parser. */
    void* command_index;       /**< look-up over `cmdlist`, built by SCPI_Init */
    scpi_framer_t framer;      /**< state of the scan of the buffered bytes */
    size_t framer_position;    /**< `buffer.position` as the parser left it; less than that now means that the
                                  application dropped the partial message */
    scpi_bool_t overrun;       /**< the message overflowed the buffer and is being dropped */
    scpi_bool_t message_error; /**< an error was queued during the current message */
};

#ifdef __cplusplus
}
#endif

#endif
