#ifndef ORVAN_SIM_SANDBOX_FAILURE_H
#define ORVAN_SIM_SANDBOX_FAILURE_H

#include <optional>

#include "orvan_sandbox/error.h"

namespace orvan_sandbox {

/** Result of a step without a value: empty on success. */
using Failure = std::optional<Error>;

/** The failure of a system call, with the present errno. */
Error system_failure(std::string step);

/**
 * The failure of a call that needs a namespace or a capability in one: when errno means that the kernel does
 * not allow or support it, the failure is marked as refused, with a hint based on the kernel's settings.
 */
Error namespace_failure(std::string step);

} // namespace orvan_sandbox

#endif
