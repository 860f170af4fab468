#ifndef ORVAN_SIM_SANDBOX_ORVAN_SANDBOX_GUARD_H
#define ORVAN_SIM_SANDBOX_ORVAN_SANDBOX_GUARD_H

#include <cstdlib>
#include <string>

#include <sys/stat.h>

namespace orvan_sandbox {

/**
 * Environment variable that names the controller's network namespace: the inode number of
 * /proc/self/ns/net as seen by a process in the controller's role, in decimal.
 */
inline constexpr const char* kSandboxVariable = "ORVAN_SANDBOX";

/**
 * True only when the calling process is in the controller's network namespace of a sandbox.
 *
 * The variable alone proves nothing, because it is inherited by processes that leave the namespace: it must
 * match the namespace the process is actually in. Also false in the roles of modules and LAN, where module
 * addresses mean something else. Needs only this header. Any thread, unless another one calls setenv; answers
 * for the process's main thread.
 */
inline bool in_sandbox()
{
    const char* name = std::getenv(kSandboxVariable);
    struct stat status = {};
    if (name == nullptr || ::stat("/proc/self/ns/net", &status) != 0) {
        return false;
    }
    return std::to_string(status.st_ino) == name;
}

} // namespace orvan_sandbox

#endif
