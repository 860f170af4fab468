/**
 * The meaning of a command pattern spelled out: every header that it matches, as a list.
 */
#ifndef TESTS_UNIT_PLATFORM_SCPI_NAIVE_MATCHER_H
#define TESTS_UNIT_PLATFORM_SCPI_NAIVE_MATCHER_H

#include <cctype>
#include <set>
#include <string>
#include <string_view>
#include <vector>

inline std::string upper_case(std::string_view text)
{
    std::string out;
    for (const char c : text) {
        out += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return out;
}

/** All headers of a well-formed pattern: short and long forms, with and without optional nodes, with and
 *  without a leading colon; in upper case. */
inline std::set<std::string> all_headers(std::string_view pattern)
{
    const bool query = pattern.ends_with('?');
    if (query) {
        pattern.remove_suffix(1);
    }
    std::vector<std::string> headers{""};
    while (!pattern.empty()) {
        const bool optional = pattern.front() == '[';
        const size_t len =
            optional ? pattern.find(']') + 1 : std::min(pattern.find_first_of(":[", 1), pattern.size());
        std::string_view name = pattern.substr(0, len);
        pattern.remove_prefix(len);
        if (optional) {
            name = name.substr(1, name.size() - 2);
        }
        std::string short_form;
        for (const char c : name) {
            if (!std::islower(static_cast<unsigned char>(c))) {
                short_form += c;
            }
        }
        std::vector<std::string> longer;
        for (const std::string& header : headers) {
            longer.push_back(header + upper_case(name));
            longer.push_back(header + short_form);
            if (optional) {
                longer.push_back(header);
            }
        }
        headers = std::move(longer);
    }
    std::set<std::string> all;
    for (const std::string& header : headers) {
        const std::string whole = header + (query ? "?" : "");
        all.insert(whole);
        if (whole.starts_with(':')) {
            all.insert(whole.substr(1));
        }
    }
    return all;
}

#endif
