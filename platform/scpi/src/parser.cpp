#include "scpi/parser.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "chars.h"
#include "command_index.h"
#include "header.h"
#include "program_text.h"
#include "scpi/error.h"
#include "scpi/extensions.h"

namespace {

using scpi::CommandIndex;

/** Nodes of the last header except its last node, within the message (SCPI-99 6.2.4). */
struct HeaderPath {
    const char* text;
    size_t len;
};

/**
 * Writes the path in front of the header, in the message itself, and returns the start of the result.
 *
 * There is always room, and only executed text is overwritten: the path is the beginning of an earlier
 * header, which is at least as long as the path, and at least a ';' separates it from this one.
 */
char* prepend_path(const HeaderPath& path, char* header)
{
    char* const start = header - path.len;
    std::memmove(start, path.text, path.len);
    return start;
}

void clear_command_state(scpi_t* context)
{
    context->param_list = {};
    context->input_count = 0;
    context->output_count = 0;
    context->arbitrary_remaining = 0;
    context->cmd_error = false;
}

bool has_unread_parameters(const lex_state_t& lex)
{
    return lex.pos < lex.buffer + lex.len;
}

void call_handler(scpi_t* context, const scpi_command_t* command)
{
    context->param_list.cmd = command;
    const scpi_result_t result = command->callback != nullptr ? command->callback(context) : SCPI_RES_ERR;
    if (context->cmd_error) {
        return;
    }
    if (result != SCPI_RES_OK) {
        SCPI_ErrorPush(context, SCPI_ERROR_EXECUTION);
    } else if (has_unread_parameters(context->param_list.lex_state)) {
        SCPI_ErrorPush(context, SCPI_ERROR_PARAMETER_NOT_ALLOWED);
    }
}

/** Executes one unit. `begin` and the unit's end delimit text without white space around it. */
void execute_unit(scpi_t* context, char* begin, const scpi::ProgramUnit& unit, HeaderPath& path)
{
    clear_command_state(context);
    const scpi::HeaderScan scan = scpi::scan_header(begin, unit.end);
    const size_t scanned = static_cast<size_t>(scan.end - begin);
    scpi_param_list_t& params = context->param_list;
    params.cmd_raw = {0, scanned, begin};
    params.lex_state = {begin + scanned, begin + scanned, 0};
    if (scan.fault != 0) {
        SCPI_ErrorPush(context, scan.fault);
        return;
    }

    if (!scan.common) {
        size_t path_len = scan.path_len;
        if (!scan.absolute) {
            params.cmd_raw.data = prepend_path(path, begin);
            params.cmd_raw.length += path.len;
            path_len += path.len;
        }
        path = {params.cmd_raw.data, path_len};
    }
    char* const data = begin + (scpi::skip_space(scan.end, unit.end) - begin);
    if (data != unit.end) {
        params.lex_state = {data, data, static_cast<size_t>(unit.end - data)};
    }

    const scpi_command_t* const command =
        SCPI_FindCommand(context, params.cmd_raw.data, params.cmd_raw.length);
    if (command == nullptr) {
        SCPI_ErrorPush(context,
                       scan.overlong ? SCPI_ERROR_PROGRAM_MNEMONIC_TOO_LONG : SCPI_ERROR_UNDEFINED_HEADER);
    } else if (unit.fault != 0) {
        SCPI_ErrorPush(context, unit.fault);
    } else {
        call_handler(context, command);
    }
}

/** Executes a message. Does not use the context's buffer position: the application may clear it meanwhile. */
void execute_message(scpi_t* context, char* message, size_t len)
{
    HeaderPath path{message, 0};
    const char* next = message;
    while (next != nullptr) {
        const scpi::ProgramUnit unit = scpi::cut_program_unit(next, message + len);
        if (unit.begin != unit.end) {
            execute_unit(context, message + (unit.begin - message), unit, path);
        }
        next = unit.next;
    }
}

/** The application drops a partial message by clearing the buffer's position between two calls. */
void notice_cleared_buffer(scpi_t* context)
{
    if (context->buffer.position >= context->framer_position) {
        return;
    }
    SCPI_FramerReset(&context->framer);
    context->framer_position = context->buffer.position;
    context->overrun = false;
}

/**
 * Appends to the message. A message that fills the buffer without ending has overflowed it: the last byte is
 * never in use between two calls, so the application can put a NUL after the contents, and a cleared position
 * can still be detected while the rest of the message is dropped.
 */
void store(scpi_t* context, const char* data, size_t len, bool ends_message)
{
    if (context->overrun) {
        return;
    }
    scpi_buffer_t& buffer = context->buffer;
    const size_t room = buffer.length - std::min(buffer.position, buffer.length);
    context->overrun = ends_message ? len > room : len >= room;
    const size_t held = context->overrun ? room - std::min<size_t>(room, 1) : len;
    if (held != 0) {
        std::memcpy(buffer.data + buffer.position, data, held);
    }
    buffer.position += held;
    context->framer_position = buffer.position;
    if (context->overrun) {
        SCPI_ErrorPush(context, SCPI_ERROR_INPUT_BUFFER_OVERRUN);
    }
}

/**
 * Executes the buffered message and reports its end to the application.
 *
 * @param result what SCPI_Input will return if no further message follows; the context must
 *               not be read after the flush, since another thread may own it from then on
 */
void finish_message(scpi_t* context, bool& result)
{
    context->message_error = context->overrun;
    if (!context->overrun) {
        execute_message(context, context->buffer.data, context->buffer.position);
    }
    clear_command_state(context);
    const scpi_interface_t* const interface = context->interface;
    if (interface != nullptr && interface->write != nullptr) {
        interface->write(context, "\r\n", 2);
    }

    result = result && !context->message_error;
    context->buffer.position = 0;
    context->framer_position = 0;
    context->overrun = false;
    if (interface != nullptr && interface->flush != nullptr) {
        interface->flush(context);
    }
}

} // namespace

void SCPI_Init(scpi_t* context, const scpi_command_t* commands, const scpi_interface_t* interface,
               const scpi_unit_def_t* units, const char* idn1, const char* idn2, const char* idn3,
               const char* idn4, char* input_buffer, size_t input_buffer_length,
               scpi_error_t* error_queue_data, int16_t error_queue_size)
{
    *context = {};
    context->cmdlist = commands;
    context->interface = interface;
    context->units = units;
    context->idn[0] = idn1;
    context->idn[1] = idn2;
    context->idn[2] = idn3;
    context->idn[3] = idn4;
    context->buffer.data = input_buffer;
    context->buffer.length = input_buffer_length;
    context->error_queue = error_queue_data;
    context->error_queue_size = error_queue_size;
    try {
        context->command_index = new CommandIndex(commands);
    } catch (const std::bad_alloc&) {
        context->command_index = nullptr;
    }
}

void SCPI_Deinit(scpi_t* context)
{
    SCPI_ErrorClear(context);
    delete static_cast<CommandIndex*>(context->command_index);
    context->command_index = nullptr;
}

scpi_bool_t SCPI_Input(scpi_t* context, const char* data, size_t len)
{
    notice_cleared_buffer(context);
    bool result = true;
    if (len == 0) {
        SCPI_FramerReset(&context->framer);
        finish_message(context, result);
        return result;
    }
    while (len != 0) {
        const size_t message_end = SCPI_FramerScan(&context->framer, data, len);
        const size_t taken = message_end != 0 ? message_end : len;
        store(context, data, taken, message_end != 0);
        if (message_end == 0) {
            return false;
        }
        data += taken;
        len -= taken;
        finish_message(context, result);
    }
    return result;
}

scpi_bool_t SCPI_Parse(scpi_t* context, char* data, size_t len)
{
    // A handler may call this, and handlers find the end of the received bytes in `buffer`.
    const scpi_t caller = *context;
    context->buffer = {len, len, data};
    context->message_error = false;
    execute_message(context, data, len);
    const bool result = !context->message_error;

    context->buffer = caller.buffer;
    context->param_list = caller.param_list;
    context->input_count = caller.input_count;
    context->output_count = caller.output_count;
    context->arbitrary_remaining = caller.arbitrary_remaining;
    context->cmd_error = caller.cmd_error || !result;
    context->message_error = caller.message_error || !result;
    return result;
}

const scpi_command_t* SCPI_FindCommand(const scpi_t* context, const char* header, size_t len)
{
    const auto* const index = static_cast<const CommandIndex*>(context->command_index);
    return index != nullptr ? index->find(header, len) : nullptr;
}

int32_t SCPI_CmdTag(const scpi_t* context)
{
    return context->param_list.cmd != nullptr ? context->param_list.cmd->tag : 0;
}

scpi_bool_t SCPI_IsCmd(const scpi_t* context, const char* pattern)
{
    const scpi_const_buffer_t& header = context->param_list.cmd_raw;
    return context->param_list.cmd != nullptr && SCPI_Match(pattern, header.data, header.length);
}
