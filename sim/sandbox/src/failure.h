#ifndef ORVAN_SIM_SANDBOX_FAILURE_H
#define ORVAN_SIM_SANDBOX_FAILURE_H

#include <optional>

#include "orvan_sandbox/error.h"

namespace orvan_sandbox {

/** Result of a step that has no value: nothing when it succeeded. */
using Failure = std::optional<Error>;

/** The failure of a system call, with errno as it stands. */
Error system_failure(std::string step);

/**
 * The failure of a call that needs a namespace or a capability in one: where errno says that the kernel does
 * not allow or does not have it, the failure is marked as refused, with a hint from the kernel's settings.
 */
Error namespace_failure(std::string step);

} // namespace orvan_sandbox

#endif
