#pragma once

#include "failure.h"

namespace orvan_sandbox {

/// Each works on the mount namespace of the calling process, which has to be a private one.

/// Cuts the mount tree off from the one it was copied from, both ways.
Failure make_mounts_private();

/// An empty /dev/shm.
Failure mount_shared_memory();

/// A new /home with all entries of the old one, and /home/orvan/halde bound to the open folder.
Failure mount_home(int halde_fd);

/// A /proc of the new PID namespace. Where the kernel refuses that, as in a container with a masked /proc,
/// the old one stays: /proc/self works there, too.
Failure mount_proc();

} // namespace orvan_sandbox
