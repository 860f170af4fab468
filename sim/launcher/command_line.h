#ifndef ORVAN_SIM_LAUNCHER_COMMAND_LINE_H
#define ORVAN_SIM_LAUNCHER_COMMAND_LINE_H

namespace orvan_launcher {

/** Parses the command line and runs the verb. Returns the exit status; 2 on a usage error. */
int run_command_line(int argc, const char* const* argv);

} // namespace orvan_launcher

#endif
