#ifndef ORVAN_SIM_SANDBOX_ORVAN_SANDBOX_CHILD_PROCESS_H
#define ORVAN_SIM_SANDBOX_ORVAN_SANDBOX_CHILD_PROCESS_H

#include <functional>
#include <map>
#include <string>
#include <vector>

#include <sys/types.h>

#include "orvan_sandbox/error.h"
#include <unique_fd.h>

namespace orvan_sandbox {

using Environment = std::map<std::string, std::string>;

/** A descriptor that is passed on, and its name. */
struct PassedFd {
    int fd = -1;
    std::string name; /**< without colons, not empty */
};

/** A program to run. */
struct Command {
    std::vector<std::string> argv;    /**< argv[0] is looked up in PATH of the changed environment */
    Environment environment;          /**< set over the caller's own */
    std::vector<PassedFd> listen_fds; /**< passed as descriptors 3.. with LISTEN_FDS, _FDNAMES and _PID */
    int input = -1;                   /**< descriptor that becomes standard input; -1 keeps the caller's */
    int output = -1;                  /**< the same for standard output and */
    int error = -1;                   /**< standard error */
    std::string own_folder; /**< folder of the caller that a program in a sandbox can write to; empty: none */
    bool own_group = false; /**< own process group, so that Ctrl-C reaches only the caller */
};

/** The namespaces for a child; those of the caller if both descriptors are empty. */
struct Membership {
    orvan_common::UniqueFd
        init; /**< pidfd of the sandbox's first process: user, mount, IPC, UTS and PID namespace */
    orvan_common::UniqueFd network; /**< network namespace of the role */
};

/**
 * Opens the namespaces of a role from outside.
 * \param init_pid      first process of the sandbox
 * \param network_path  nsfs path of the role's network namespace, "/proc/PID/fd/N" or "/proc/PID/ns/net"
 */
Result<Membership> open_membership(pid_t init_pid, const std::string& network_path);

/**
 * Starts a program in the namespaces of `membership`. It is a direct child of the caller, with a process id
 * valid for the caller, no blocked signals, default handlers, and no descriptors but 0 to 2 and listen_fds.
 * It is killed when the calling thread ends, and reaped by the caller. An error when the namespaces cannot be
 * entered or the program cannot be executed.
 */
Result<pid_t> spawn(const Membership& membership, const Command& command);

/** Runs `body` in such a child; its result is the exit status. The child ends with _exit. */
Result<pid_t> spawn_function(const Membership& membership, const std::function<int()>& body);

/**
 * Runs `make` in such a child and passes the descriptor it returns to the caller, e.g. a socket in that
 * network namespace. A negative result of `make` is an error with the child's errno.
 */
Result<orvan_common::UniqueFd> make_descriptor(const Membership& membership,
                                               const std::function<int()>& make);

/**
 * Waits for a child. Returns as the shell does: exit status, or 128 + signal number; -1 when there is no such
 * child, and for a pid below 1.
 */
int wait_for(pid_t pid);

/** The same for a wait status from waitpid(). */
int exit_code_of(int wait_status);

} // namespace orvan_sandbox

#endif
