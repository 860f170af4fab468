#ifndef ORVAN_SIM_LAUNCHER_COMMAND_LINE_H
#define ORVAN_SIM_LAUNCHER_COMMAND_LINE_H

namespace orvan_launcher {

/** Reads the command line and runs the verb. The exit status of the program; 2 when the line is wrong. */
int run_command_line(int argc, const char* const* argv);

} // namespace orvan_launcher

#endif
