#ifndef ORVAN_SIM_LAUNCHER_POWER_ON_VERBS_H
#define ORVAN_SIM_LAUNCHER_POWER_ON_VERBS_H

#include <string>
#include <string_view>
#include <vector>

#include "orvan_sandbox/error.h"

namespace orvan_launcher {

/** Tries the verbs on a board of that platform in order. Returns an error for the first one refused. */
orvan_sandbox::Result<bool> check_power_on_verbs(std::string_view platform,
                                                 const std::vector<std::string>& verbs);

} // namespace orvan_launcher

#endif
