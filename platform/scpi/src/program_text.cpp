#include "program_text.h"

#include <algorithm>
#include <cstring>

#include "byte_search.h"
#include "chars.h"
#include "mnemonic.h"
#include "scpi/error.h"

namespace scpi {
namespace {

bool is_header_char(char c)
{
    return fold_mnemonic(c) != 0 || c == ':' || c == '*' || c == '?';
}

const char* skip_space_in_line(const char* p, const char* end)
{
    while (p < end && is_space(*p) && *p != '\n') {
        ++p;
    }
    return p;
}

/** True if the last non-white-space byte of [from, p) is a ','. */
bool follows_comma(const char* from, const char* p)
{
    while (p > from && is_space(p[-1])) {
        --p;
    }
    return p > from && p[-1] == ',';
}

/** Scans from kElement to the next significant byte. False if the scan has to stop at `p`. */
bool scan_element(scpi_framer_t& state, const char*& p, const char* end, TextStop& stop)
{
    const char* const from = p;
    for (;;) {
        p = find_any<'\n', '"', '\'', '#', ';', '(', ')'>(p, end);
        if (p == end) {
            if (state.depth == 0 && follows_comma(from, p)) {
                state.state = kElementStart;
            }
            stop = TextStop::kEnd;
            return false;
        }
        switch (*p) {
        case '\n':
            stop = TextStop::kMessageEnd;
            return false;
        case ';':
            if (state.depth == 0) {
                stop = TextStop::kUnitEnd;
                return false;
            }
            break;
        case '#':
            if (state.depth == 0 && follows_comma(from, p)) {
                state.state = kHash;
                ++p;
                return true;
            }
            break;
        case '(':
            ++state.depth;
            break;
        case ')':
            if (state.depth != 0) {
                --state.depth;
            }
            break;
        default:
            state.quote = *p++;
            state.state = kString;
            return true;
        }
        ++p;
    }
}

/** Reads digits of a block's length; true when they are complete. */
bool scan_block_length(scpi_framer_t& state, const char*& p, const char* end)
{
    while (p < end && state.digits_left != 0) {
        if (!is_digit(*p)) {
            state.state = kElement;
            return false;
        }
        state.block_left = state.block_left * 10 + static_cast<uint64_t>(*p - '0');
        --state.digits_left;
        ++p;
    }
    return state.digits_left == 0;
}

} // namespace

TextStop scan_program_text(scpi_framer_t& state, const char*& p, const char* end)
{
    TextStop stop = TextStop::kEnd;
    while (p < end) {
        switch (state.state) {
        case kUnitStart:
            p = skip_space_in_line(p, end);
            if (p < end) {
                state.state = kHeader;
            }
            break;

        case kHeader:
            while (p < end && is_header_char(*p)) {
                ++p;
            }
            if (p < end) {
                state.state = is_space(*p) ? kElementStart : kElement;
            }
            break;

        case kElementStart:
            p = skip_space_in_line(p, end);
            if (p == end) {
                break;
            }
            if (*p == '#') {
                state.state = kHash;
                ++p;
            } else {
                state.state = kElement;
            }
            break;

        case kElement:
            if (!scan_element(state, p, end, stop)) {
                return stop;
            }
            break;

        case kString:
            p = state.quote == '"' ? find_any<'"', '\n'>(p, end) : find_any<'\'', '\n'>(p, end);
            if (p == end) {
                break;
            }
            if (*p == '\n') {
                return TextStop::kMessageEnd;
            }
            // A doubled quote reopens the string at once.
            state.state = kElement;
            ++p;
            break;

        case kHash:
            state.block_left = 0;
            state.digits_left = is_digit(*p) ? static_cast<uint8_t>(*p - '0') : 0;
            if (!is_digit(*p)) {
                state.state = kElement;
            } else {
                state.state = *p == '0' ? kIndefiniteBlock : kBlockLength;
                ++p;
            }
            break;

        case kBlockLength:
            if (!scan_block_length(state, p, end)) {
                break;
            }
            state.state = state.block_left != 0 ? kDefiniteBlock : kElement;
            break;

        case kDefiniteBlock: {
            const uint64_t taken = std::min<uint64_t>(state.block_left, static_cast<uint64_t>(end - p));
            p += taken;
            state.block_left -= taken;
            if (state.block_left != 0) {
                break;
            }
            state.state = kElement;
            return TextStop::kBlockEnd;
        }

        case kIndefiniteBlock:
            p = static_cast<const char*>(std::memchr(p, '\n', static_cast<size_t>(end - p)));
            if (p != nullptr) {
                return TextStop::kMessageEnd;
            }
            p = end;
            break;

        default:
            state = {};
            break;
        }
    }
    return TextStop::kEnd;
}

ProgramUnit cut_program_unit(const char* p, const char* end)
{
    ProgramUnit unit{};
    unit.begin = skip_space_in_line(p, end);

    scpi_framer_t state{};
    const char* data_end = unit.begin; // white space before it is the data of a block
    p = unit.begin;
    TextStop stop;
    while ((stop = scan_program_text(state, p, end)) == TextStop::kBlockEnd) {
        data_end = p;
    }

    unit.next = stop == TextStop::kUnitEnd ? p + 1 : nullptr;
    unit.end = p;
    if (state.state == kIndefiniteBlock) {
        const bool cr_of_line_end = stop == TextStop::kMessageEnd && p[-1] == '\r';
        unit.end -= cr_of_line_end ? 1 : 0;
    } else {
        while (unit.end > data_end && is_space(unit.end[-1])) {
            --unit.end;
        }
    }

    if (state.state == kString) {
        unit.fault = SCPI_ERROR_INVALID_STRING_DATA;
    } else if (state.state == kBlockLength || state.state == kDefiniteBlock) {
        unit.fault = SCPI_ERROR_INVALID_BLOCK_DATA;
    } else if (state.depth != 0) {
        unit.fault = SCPI_ERROR_INVALID_EXPRESSION;
    }
    return unit;
}

} // namespace scpi
