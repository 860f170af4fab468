#ifndef ORVAN_SIM_LAUNCHER_VERBS_H
#define ORVAN_SIM_LAUNCHER_VERBS_H

#include <string>
#include <vector>

#include "instance.h"

namespace orvan_launcher {

/** The verbs of the program; each returns the exit status. Error messages go to standard error. */

int run_instance(const RunOptions& options);

/** Sends a request to the launcher and prints the reply. 1 when it is refused. */
int control_instance(const std::string& state, const std::vector<std::string>& words);

/** Runs a command in a role. Its exit status, 128 + signal number, 127 when it cannot be run. */
int execute_inside(const std::string& named_state, const std::string& role,
                   const std::vector<std::string>& words);

} // namespace orvan_launcher

#endif
