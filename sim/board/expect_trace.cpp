#include "board/expect_trace.h"

#include <algorithm>
#include <iostream>

namespace sim_board {
namespace {

std::vector<std::string> trimmed_lines(std::string_view text)
{
    std::vector<std::string> lines;
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        const size_t first = line.find_first_not_of(" \t");
        if (first != std::string_view::npos) {
            lines.emplace_back(line.substr(first, line.find_last_not_of(" \t") - first + 1));
        }
    }
    return lines;
}

} // namespace

std::string first_difference(const std::vector<std::string>& actual, std::string_view expected)
{
    const std::vector<std::string> wanted = trimmed_lines(expected);
    const auto line_of = [](const std::vector<std::string>& lines, size_t index) {
        return index < lines.size() ? lines[index] : std::string("(end of trace)");
    };
    for (size_t i = 0; i < std::max(actual.size(), wanted.size()); ++i) {
        if (i >= actual.size() || i >= wanted.size() || actual[i] != wanted[i]) {
            return "the trace differs in line " + std::to_string(i + 1) +
                   "\n  expected: " + line_of(wanted, i) + "\n  actual:   " + line_of(actual, i) + "\n";
        }
    }
    return {};
}

bool expect_trace(const std::vector<std::string>& actual, std::string_view expected)
{
    return expect_trace(actual, expected, std::cerr);
}

bool expect_trace(const std::vector<std::string>& actual, std::string_view expected, std::ostream& out)
{
    const std::string difference = first_difference(actual, expected);
    out << difference;
    return difference.empty();
}

} // namespace sim_board
