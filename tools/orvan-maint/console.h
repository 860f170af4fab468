/**
 * The user at the terminal.
 */
#ifndef ORVAN_MAINT_CONSOLE_H
#define ORVAN_MAINT_CONSOLE_H

#include <string>
#include <vector>

namespace orvan_maint {

/** A line to standard output, at once. */
void say(const std::string& line);

/** A line to standard error. */
void complain(const std::string& text);

/**
 * Says what is going to happen, and asks whether it may; with `yes` it may without a question. Throws Failure
 * when it may not, Interrupted when the user wants an end.
 *
 * @param stop a descriptor that becomes readable when the user wants an end; negative for none
 */
void agree(const std::vector<std::string>& plan, bool yes, int stop);

} // namespace orvan_maint

#endif
