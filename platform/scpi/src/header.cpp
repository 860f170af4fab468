#include "header.h"

#include <string_view>

#include "chars.h"
#include "mnemonic.h"
#include "scpi/error.h"

namespace scpi {
namespace {

bool is_one_of(char c, std::string_view set)
{
    return set.find(c) != std::string_view::npos;
}

bool is_header_punctuation(char c)
{
    return is_one_of(c, ":*?_");
}

/** Starts or separates program data (IEEE 488.2 7.7, 7.4.2). */
bool is_data_punctuation(char c)
{
    return is_one_of(c, "\"'#()+-.,");
}

/** Why no mnemonic starts at `p`. */
int16_t mnemonic_fault(const char* begin, const char* p, const char* end)
{
    if (p == end || is_space(*p) || is_header_punctuation(*p)) {
        return SCPI_ERROR_COMMAND_HEADER;
    }
    if (is_digit(*p) || is_data_punctuation(*p)) {
        return p == begin ? SCPI_ERROR_SYNTAX : SCPI_ERROR_COMMAND_HEADER;
    }
    return SCPI_ERROR_INVALID_CHARACTER;
}

} // namespace

HeaderScan scan_header(const char* begin, const char* end)
{
    HeaderScan scan{};
    const char* p = begin;
    scan.common = *p == '*';
    scan.absolute = *p == ':';
    if (scan.common || scan.absolute) {
        ++p;
    }

    for (;;) {
        if (p == end || !is_alpha(*p)) {
            scan.fault = mnemonic_fault(begin, p, end);
            scan.end = p;
            return scan;
        }
        const char* const mnemonic = p;
        p = skip_mnemonic(p, end);
        scan.overlong |= p - mnemonic > kLongestMnemonic;
        if (scan.common || p == end || *p != ':') {
            break;
        }
        ++p;
        scan.path_len = static_cast<size_t>(p - begin);
    }
    if (scan.absolute && scan.path_len == 0) {
        scan.path_len = 1;
    }

    if (p != end && *p == '?') {
        ++p;
    }
    if (p != end && !is_space(*p)) {
        scan.fault = is_header_punctuation(*p) || is_data_punctuation(*p) || fold_mnemonic(*p) != 0
                         ? SCPI_ERROR_HEADER_SEPARATOR
                         : SCPI_ERROR_INVALID_CHARACTER;
    }
    scan.end = p;
    return scan;
}

} // namespace scpi
