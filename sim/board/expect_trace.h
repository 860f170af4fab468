#ifndef ORVAN_SIM_BOARD_EXPECT_TRACE_H
#define ORVAN_SIM_BOARD_EXPECT_TRACE_H

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace sim_board {

/**
 * Describes, in a few lines, the first line in which a trace differs from the expected text; empty if none.
 * Indentation and blank lines in `expected` are ignored, so it can be a raw string literal.
 */
std::string first_difference(const std::vector<std::string>& actual, std::string_view expected);

/** True if the trace is as expected; otherwise prints the first line that differs. For EXPECT_TRUE. */
bool expect_trace(const std::vector<std::string>& actual, std::string_view expected);
bool expect_trace(const std::vector<std::string>& actual, std::string_view expected, std::ostream& out);

} // namespace sim_board

#endif
