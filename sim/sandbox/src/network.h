#ifndef ORVAN_SIM_SANDBOX_NETWORK_H
#define ORVAN_SIM_SANDBOX_NETWORK_H

#include <vector>

#include "failure.h"
#include <unique_fd.h>

namespace orvan_sandbox {

/**
 * Makes the network namespaces of all roles, in the order of Role::index(), joins them by links and sets
 * addresses. The calling process is then in the controller's.
 *
 * settings: a writable /proc/sys.
 */
Result<std::vector<orvan_common::UniqueFd>> build_network(int modules,
                                                          const orvan_common::UniqueFd& settings);

} // namespace orvan_sandbox

#endif
