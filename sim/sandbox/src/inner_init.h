#ifndef ORVAN_SIM_SANDBOX_INNER_INIT_H
#define ORVAN_SIM_SANDBOX_INNER_INIT_H

#include <vector>

#include <sys/types.h>

#include "mounts.h"
#include "orvan_sandbox/error.h"
#include <unique_fd.h>

namespace orvan_sandbox {

/** A sandbox that has been set up. */
struct Begun {
    bool inside = false;          /**< true in the process that continues inside */
    pid_t init = -1;              /**< first process, as its parent sees it (outside only) */
    orvan_common::UniqueFd link;  /**< to that process (outside only) */
    ino_t network_id = 0;         /**< controller's network namespace */
    std::vector<int> network_fds; /**< descriptors of the roles' networks in the first process (outside) */
    std::vector<orvan_common::UniqueFd> networks; /**< the same as own descriptors (inside) */
};

/**
 * Makes the first process of a new sandbox, which sets up everything, reaps orphans and, as the first of its
 * PID namespace, ends all others when it ends.
 * \param go_on_inside  the call returns a second time, in a child of the first process; the sandbox ends with
 *                      that child, and its wait status is written to `link` as an int.
 */
Result<Begun> begin_sandbox(const View& view, int modules, bool go_on_inside);

} // namespace orvan_sandbox

#endif
