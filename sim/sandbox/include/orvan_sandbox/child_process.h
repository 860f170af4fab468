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

/** A program to be run. */
struct Command {
    std::vector<std::string> argv; /**< argv[0] is looked up in PATH of the changed environment */
    Environment environment;       /**< set over the caller's own */
    std::vector<int> listen_fds;   /**< passed as descriptors 3.. with LISTEN_FDS and LISTEN_PID */
    int input = -1;                /**< descriptor that becomes standard input; -1 keeps the caller's */
    int output = -1;               /**< the same for standard output and */
    int error = -1;                /**< standard error */
    std::string own_folder; /**< folder of the caller that a program in a sandbox can write to; empty: none */
    bool own_group = false; /**< process group of its own, so that Ctrl-C reaches only the caller */
};

/** The namespaces a child is put into; both descriptors empty: those of the caller. */
struct Membership {
    UniqueFd init;    /**< pidfd of the sandbox's first process: user, mount, IPC, UTS and PID namespace */
    UniqueFd network; /**< network namespace of the role */
};

/**
 * Opens the namespaces of a role from outside.
 * \param init_pid      first process of the sandbox
 * \param network_path  nsfs path of the role's network namespace, "/proc/PID/fd/N" or "/proc/PID/ns/net"
 */
Result<Membership> open_membership(pid_t init_pid, const std::string& network_path);

/**
 * Starts a program in the namespaces of `membership`; it is a direct child of the caller, with a process id
 * valid for the caller, no blocked signals, default handlers, and no descriptors but 0 to 2 and listen_fds.
 * It is killed when the calling thread ends. An error when the namespaces cannot be entered or the program
 * cannot be executed. The caller reaps it.
 */
Result<pid_t> spawn(const Membership& membership, const Command& command);

/** Runs `body` in a child in the same way; its result is the exit status. The child leaves by _exit. */
Result<pid_t> spawn_function(const Membership& membership, const std::function<int()>& body);

/**
 * Runs `make` in such a child and hands the descriptor it returns to the caller, e.g. a socket of that
 * network namespace. A negative result of `make` is an error with the child's errno.
 */
Result<UniqueFd> make_descriptor(const Membership& membership, const std::function<int()>& make);

/**
 * Waits for a child. The shell's convention: exit status, or 128 + signal number; -1 when there is no such
 * child, and for a number below 1, which is no process.
 */
int wait_for(pid_t pid);

/** The same convention for a status as waitpid gives it. */
int exit_code_of(int wait_status);

} // namespace orvan_sandbox

#endif
