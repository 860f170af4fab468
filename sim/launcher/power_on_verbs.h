#ifndef ORVAN_SIM_LAUNCHER_POWER_ON_VERBS_H
#define ORVAN_SIM_LAUNCHER_POWER_ON_VERBS_H

#include <string>
#include <string_view>
#include <vector>

#include "orvan_sandbox/error.h"

namespace orvan_launcher {

/** Tries the verbs on a board of that platform, one after another. An error for the first that it refuses. */
orvan_sandbox::Result<bool> check_power_on_verbs(std::string_view platform,
                                                 const std::vector<std::string>& verbs);

} // namespace orvan_launcher

#endif
