#include "instrument_fixture.h"

#include <cctype>

std::string short_header(std::string_view pattern)
{
    std::string header;
    bool optional = false;
    for (const char c : pattern) {
        if (c == '[' || c == ']') {
            optional = c == '[';
        } else if (!optional && !std::islower(static_cast<unsigned char>(c))) {
            header += c;
        }
    }
    return header;
}

std::string long_header(std::string_view pattern)
{
    std::string header;
    for (const char c : pattern) {
        if (c != '[' && c != ']') {
            header += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        }
    }
    return header;
}
