#ifndef ORVAN_MAINT_COMMAND_LINE_H
#define ORVAN_MAINT_COMMAND_LINE_H

namespace orvan_maint {

/**
 * The whole program.
 *
 * @param stop a descriptor that becomes readable when the user interrupts; negative for none
 * @return an ExitCode
 */
int run(int argc, const char* const* argv, int stop);

} // namespace orvan_maint

#endif
