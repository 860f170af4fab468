/**
 * Calls of the parser library that the open one of the same interface declares differently or lacks. With
 * these the sources compile against either; no other file uses an extension of the one in this tree.
 */
#ifndef ORVAN_SDK_PARSER_LIBRARY_H
#define ORVAN_SDK_PARSER_LIBRARY_H

#include <cstddef>
#include <cstring>

#include <scpi/scpi.h>

#if __has_include(<scpi/extensions.h>)
#include <scpi/extensions.h>
#define ORVAN_PARSER_EXTENSIONS 1
#else
#define ORVAN_PARSER_EXTENSIONS 0
#endif

namespace HaldeElec::Orvan {

/** SCPI_Input, whatever integer type the library uses for the length. */
template <typename Length>
scpi_bool_t hand_in(scpi_bool_t (*input)(scpi_t*, const char*, Length), scpi_t* context, const char* data,
                    int len)
{
    return input(context, data, static_cast<Length>(len));
}

/** Queues an error with a copy of the text. */
inline void queue_error(scpi_t* context, int_fast16_t code, const char* info)
{
    // The open library's parameter has no const, though the text is only read.
    SCPI_ErrorPushEx(context, code, const_cast<char*>(info), std::strlen(info));
}

/**
 * Adds a text to the error that a parameter reader has just queued. Without the extension the error has no
 * text, which no client notices: error lines do not show it, and no command reads this queue.
 */
inline void explain_error([[maybe_unused]] scpi_t* context, [[maybe_unused]] const char* info)
{
#if ORVAN_PARSER_EXTENSIONS
    SCPI_ErrorUpdateEx(context, info, std::strlen(info));
#endif
}

/** First row of the context's table that the header matches, null if none does; tries row by row. */
inline const scpi_command_t* match_rows(const scpi_t* context, const char* header, size_t len)
{
    for (const scpi_command_t* row = context->cmdlist; row->pattern != nullptr; ++row) {
        if (SCPI_Match(row->pattern, header, len)) {
            return row;
        }
    }
    return nullptr;
}

/** The same, using the library's index if it has one. */
inline const scpi_command_t* find_row(const scpi_t* context, const char* header, size_t len)
{
#if ORVAN_PARSER_EXTENSIONS
    return SCPI_FindCommand(context, header, len);
#else
    return match_rows(context, header, len);
#endif
}

} // namespace HaldeElec::Orvan

#endif
