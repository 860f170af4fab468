#ifndef ORVAN_SIM_SANDBOX_IP_PROGRAM_H
#define ORVAN_SIM_SANDBOX_IP_PROGRAM_H

#include <string>

#include "failure.h"
#include "orvan_sandbox/sandbox.h"

namespace orvan_sandbox {

/**
 * Runs a batch of `ip` commands, one per line, up to the first that fails, in another network namespace. It
 * can refer to descriptors without close-on-exec as /proc/self/fd/N.
 */
Failure run_ip_batch(const std::string& batch, int network_fd);

} // namespace orvan_sandbox

#endif
