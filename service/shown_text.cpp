#include "shown_text.h"

#include <algorithm>

namespace orvan_service {

std::string printable(std::string_view text)
{
    std::string result(text);
    std::replace_if(
        result.begin(), result.end(), [](char c) { return c < ' ' || c > '~'; }, '.');
    return result;
}

std::string shown_message(std::string_view begin, size_t length)
{
    if (length > begin.size()) {
        return printable(begin) + "...";
    }
    return printable(begin.substr(0, begin.find_last_not_of("\r\n") + 1));
}

} // namespace orvan_service
