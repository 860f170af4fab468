#ifndef ORVAN_SIM_SANDBOX_NAMESPACES_H
#define ORVAN_SIM_SANDBOX_NAMESPACES_H

#include <functional>

#include <sys/types.h>

#include "failure.h"

namespace orvan_sandbox {

/**
 * Like fork, with clone flags for new namespaces and with `prepare` run just before in a process in between,
 * so that what `prepare` changes (namespaces it joins) holds for the child and not for the caller. The child
 * is the caller's own child, and the result is its process id; 0 in the child.
 */
Result<pid_t> fork_through(unsigned long clone_flags, const std::string& step,
                           const std::function<Failure()>& prepare);

/**
 * Writes the user and group maps of a process in a new user namespace, from its parent's. Root keeps every
 * id it has, so that it can still open other users' files; any other caller becomes root with its own id
 * behind it.
 */
Failure write_id_maps(pid_t pid);

/**
 * Moves the calling process, which has one thread, into a user namespace within its own, with the same ids,
 * and into a copy of its mount namespace. There the kernel keeps mounts as they are: what is read-only stays
 * so, and nothing can be unmounted, whatever privilege a process has inside. Uses /proc.
 */
Failure lock_mounts();

/** unshare() with the failure named after the namespace. */
Failure unshare_namespace(int flag, const char* name);

} // namespace orvan_sandbox

#endif
