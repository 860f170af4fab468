#ifndef ORVAN_SIM_LAUNCHER_RESTART_POLICY_H
#define ORVAN_SIM_LAUNCHER_RESTART_POLICY_H

#include <chrono>
#include <string>

namespace orvan_launcher {

/** When processes of an instrument are restarted, as their units have it. */

/** RestartSec. */
inline constexpr std::chrono::seconds kRestartDelay{5};

/** As Restart=on-failure with RestartPreventExitStatus=2, the exit status for bad options.
 *  \param status  wait status, as from waitpid() */
bool is_restarted_after(int status);

/** "0.25 s" */
std::string seconds_text(std::chrono::duration<double> time);

} // namespace orvan_launcher

#endif
