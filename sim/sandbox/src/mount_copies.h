#ifndef ORVAN_SIM_SANDBOX_MOUNT_COPIES_H
#define ORVAN_SIM_SANDBOX_MOUNT_COPIES_H

#include <filesystem>

#include "failure.h"
#include <unique_fd.h>

namespace orvan_sandbox {

/**
 * A copy of what is mounted at a folder, with all below it as it is now; it belongs to no mount namespace.
 * Takes a privilege in that of the calling process.
 */
Result<UniqueFd> copy_mounts(const std::filesystem::path& folder);

/** The same without a privilege, by a child process. */
Result<UniqueFd> copy_mounts_unprivileged(const std::filesystem::path& folder);

/** Mounts a copy at a folder, which is made if necessary. Once for each copy. */
Failure attach_copy(const UniqueFd& copy, const std::filesystem::path& folder);

} // namespace orvan_sandbox

#endif
