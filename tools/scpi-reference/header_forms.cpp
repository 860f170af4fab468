#include "header_forms.h"

#include <cctype>

namespace scpi_reference {

std::string shortest_form(std::string_view pattern)
{
    std::string text;
    bool optional = false;
    for (const char c : pattern) {
        if (c == '[' || c == ']') {
            optional = c == '[';
        } else if (!optional && std::islower(static_cast<unsigned char>(c)) == 0) {
            text += c;
        }
    }
    return text;
}

std::string longest_form(std::string_view pattern)
{
    std::string text;
    for (const char c : pattern) {
        if (c != '[' && c != ']') {
            text += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        }
    }
    return text;
}

} // namespace scpi_reference
