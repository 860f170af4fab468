#ifndef ORVAN_SIM_SANDBOX_MOUNT_COPIES_H
#define ORVAN_SIM_SANDBOX_MOUNT_COPIES_H

#include <filesystem>

#include "failure.h"
#include <unique_fd.h>

namespace orvan_sandbox {

/**
 * A detached copy of the mounts at and below a folder, as they are now. Needs privileges in the mount
 * namespace of the calling process.
 */
Result<orvan_common::UniqueFd> copy_mounts(const std::filesystem::path& folder);

/** The same without privileges, in a child process. */
Result<orvan_common::UniqueFd> copy_mounts_unprivileged(const std::filesystem::path& folder);

/** Mounts a copy at a folder, which is made if necessary. Once per copy. */
Failure attach_copy(const orvan_common::UniqueFd& copy, const std::filesystem::path& folder);

} // namespace orvan_sandbox

#endif
