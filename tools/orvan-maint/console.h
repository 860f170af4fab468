/**
 * The user at the terminal.
 */
#ifndef ORVAN_MAINT_CONSOLE_H
#define ORVAN_MAINT_CONSOLE_H

#include <string>
#include <vector>

namespace orvan_maint {

/** Writes a line to standard output and flushes it. */
void say(const std::string& line);

/** Writes a line to standard error. */
void complain(const std::string& text);

/**
 * Prints what is going to happen and asks for confirmation, unless `yes`. Throws Failure when it is denied,
 * Interrupted when the user interrupts.
 *
 * @param stop a descriptor that becomes readable when the user interrupts; negative for none
 */
void agree(const std::vector<std::string>& plan, bool yes, int stop);

} // namespace orvan_maint

#endif
