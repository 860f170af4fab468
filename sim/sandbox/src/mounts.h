#ifndef ORVAN_SIM_SANDBOX_MOUNTS_H
#define ORVAN_SIM_SANDBOX_MOUNTS_H

#include <filesystem>
#include <vector>

#include "failure.h"

namespace orvan_sandbox {

/** What a sandbox shows of the machine's files. All of them are absolute and canonical. */
struct View {
    std::filesystem::path state;              /**< stays writable; its `halde` is also /home/orvan/halde */
    std::vector<std::filesystem::path> homes; /**< hidden, besides /home and /root */
    std::vector<std::filesystem::path> shown; /**< stay visible where they lie in a hidden folder */
};

/** The view of a caller: its own home is hidden, and this program's tree is shown. */
View view_for_caller(const std::filesystem::path& state);

/** Each of the following works on the mount namespace of the calling process, which has to be a private one.
 */

/** Cuts the mount tree off from the one it was copied from, both ways. */
Failure make_mounts_private();

/**
 * Makes everything read-only and without devices but the harmless ones, puts private folders in memory in
 * place of homes, /tmp, /run and /dev/shm, and binds what the view shows back into them.
 */
Failure mount_view(const View& view);

/**
 * A /proc of the new PID namespace, in which only what belongs to processes can be written. Where the kernel
 * refuses a new one, as in a container with a masked /proc, the old one stays: /proc/self works there, too.
 */
Failure mount_proc();

} // namespace orvan_sandbox

#endif
