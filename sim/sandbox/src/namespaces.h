#ifndef ORVAN_SIM_SANDBOX_NAMESPACES_H
#define ORVAN_SIM_SANDBOX_NAMESPACES_H

#include <functional>

#include <sys/types.h>

#include "failure.h"

namespace orvan_sandbox {

/**
 * Like fork, with clone flags for new namespaces. `prepare` runs before in an intermediate process, so that
 * its changes (namespaces it joins) affect the child and not the caller. The child is a direct child of the
 * caller. Returns its process id; 0 in the child.
 */
Result<pid_t> fork_through(unsigned long clone_flags, const std::string& step,
                           const std::function<Failure()>& prepare);

/**
 * Writes the user and group maps of a process in a new user namespace, from the parent namespace. Root keeps
 * all its ids, so that it can still open other users' files; any other caller is mapped to root.
 */
Failure write_id_maps(pid_t pid);

/**
 * Moves the calling, single-threaded process into a nested user namespace with the same ids, and into a copy
 * of its mount namespace. There the kernel locks the mounts: what is read-only stays so, and nothing can be
 * unmounted, whatever privileges a process has inside. Uses /proc.
 */
Failure lock_mounts();

/** unshare() with the failure named after the namespace. */
Failure unshare_namespace(int flag, const char* name);

} // namespace orvan_sandbox

#endif
