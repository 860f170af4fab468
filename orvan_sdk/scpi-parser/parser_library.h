/**
 * The calls of the parser library that the open one of the same interface takes otherwise, or does not have.
 * With these the sources compile against either; nothing else names an extension of the one in this tree.
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

/** SCPI_Input, whatever integer type the library counts its bytes with. */
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
 * Puts a text on the error that the reader of a parameter has just queued. Without the extension the error
 * stays without a text, which no client notices: error lines show none, and no row reads this queue.
 */
inline void explain_error([[maybe_unused]] scpi_t* context, [[maybe_unused]] const char* info)
{
#if ORVAN_PARSER_EXTENSIONS
    SCPI_ErrorUpdateEx(context, info, std::strlen(info));
#endif
}

/** First row of the context's table that the header matches, null when none does; tries row after row. */
inline const scpi_command_t* match_rows(const scpi_t* context, const char* header, size_t len)
{
    for (const scpi_command_t* row = context->cmdlist; row->pattern != nullptr; ++row) {
        if (SCPI_Match(row->pattern, header, len)) {
            return row;
        }
    }
    return nullptr;
}

/** The same row, by the library's index where it has one. */
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
