#ifndef ORVAN_SIM_SANDBOX_MOUNTS_H
#define ORVAN_SIM_SANDBOX_MOUNTS_H

#include <filesystem>
#include <vector>

#include "failure.h"

namespace orvan_sandbox {

/** Which of the machine's files are visible in a sandbox. All paths are absolute and canonical. */
struct View {
    std::filesystem::path state;              /**< stays writable; its `halde` is also /home/orvan/halde */
    std::vector<std::filesystem::path> homes; /**< hidden, besides /home and /root */
    std::vector<std::filesystem::path> shown; /**< stay visible where they are in a hidden folder */
};

/** The default view: the caller's home is hidden, this program's tree is shown. */
View view_for_caller(const std::filesystem::path& state);

/** The following work on the mount namespace of the calling process, which must be a private one.
 */

/** Stops mount propagation to and from the tree it was copied from. */
Failure make_mounts_private();

/**
 * Makes everything read-only, hides all but harmless devices, mounts private folders in memory over homes,
 * /tmp, /run and /dev/shm, and binds what the view shows back into them.
 */
Failure mount_view(const View& view);

/**
 * Mounts a /proc of the new PID namespace, in which only the processes' files are writable. Where the kernel
 * refuses, as in a container with a masked /proc, the old one stays: /proc/self works there, too.
 */
Failure mount_proc();

} // namespace orvan_sandbox

#endif
