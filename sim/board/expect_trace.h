#ifndef ORVAN_SIM_BOARD_EXPECT_TRACE_H
#define ORVAN_SIM_BOARD_EXPECT_TRACE_H

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace sim_board {

/**
 * The first line in which a trace differs from the expected text, told in a few lines, or an empty text.
 * In `expected` the indentation of a line and blank lines do not count, so it can be a raw string literal.
 */
std::string first_difference(const std::vector<std::string>& actual, std::string_view expected);

/** True if the trace is as expected; otherwise prints the first line that differs. For EXPECT_TRUE. */
bool expect_trace(const std::vector<std::string>& actual, std::string_view expected);
bool expect_trace(const std::vector<std::string>& actual, std::string_view expected, std::ostream& out);

} // namespace sim_board

#endif
