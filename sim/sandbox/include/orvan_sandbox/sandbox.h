#ifndef ORVAN_SIM_SANDBOX_ORVAN_SANDBOX_SANDBOX_H
#define ORVAN_SIM_SANDBOX_ORVAN_SANDBOX_SANDBOX_H

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "orvan_sandbox/addresses.h"
#include "orvan_sandbox/child_process.h"
#include "orvan_sandbox/error.h"
#include "orvan_sandbox/guard.h"
#include "orvan_sandbox/role.h"
#include <unique_fd.h>

namespace orvan_sandbox {

/**
 * A sandbox is a set of private user, PID, mount, IPC, UTS and network namespaces; it needs no privileges. In
 * it:
 *  - the machine's files are read-only except the state directory, and no process in it can change that;
 *  - homes are empty, and so are /tmp, /run and /dev/shm; what is written there is private and lost with the
 *    sandbox. The state directory, the program's own folders, its build tree and its source tree stay
 *    visible wherever they are;
 *  - the only devices are null, zero, full, random, urandom and tty;
 *  - /home/orvan/halde is the folder `halde` of the state directory;
 *  - /sys/class/net lists lo, eth0 and usb0.. with `device/driver` links, "rndis_host" for the latter;
 *  - the stand-ins for sudo, reboot, systemctl and the he_*.sh scripts come first in PATH, and record their
 *    calls in `log/calls.log` of the state directory; the scripts set the sandbox's host name and the
 *    address of the controller's eth0, "dynamic" as from a DHCP server on the LAN with the pool 10.0.0.100
 *    to 10.0.0.199;
 *  - each role (controller, LAN, modules) has a network namespace; controller and module N are joined by
 *    192.168.(6+N).2/24 and 192.168.(6+N).1/24, controller and LAN by eth0 with 10.0.0.2/24 and 10.0.0.1/24;
 *  - the user is root inside the sandbox, and still the caller to the rest of the system.
 * Nothing outlives it: its first process dies with the thread that made it, and everything else with it.
 */
struct Options {
    std::filesystem::path state; /**< state directory; made with `halde`, `log` and `run` when missing */
    int modules = kMaxModules;   /**< modules with a link, 0 to kMaxModules */
};

/**
 * Environment of every process of a sandbox: PATH, TMPDIR, ORVAN_SANDBOX, ORVAN_STATE and
 * ORVAN_BOARD_EEPROM. An error when the stand-ins are not found.
 * \param network_id  inode of the controller's network namespace; 0 omits ORVAN_SANDBOX and TMPDIR, for a
 *                    virtual instrument without a sandbox, which still uses the stand-ins
 */
Result<Environment> sandbox_environment(const std::filesystem::path& state, ino_t network_id);

/**
 * Makes the folders of a state directory: halde with json, config, preset, upgrade and upgrade/orvanx;
 * board; log; run; and installs the factory setup halde/json/ch0.json where there is none. The result is its
 * absolute path.
 */
Result<std::filesystem::path> make_state_directory(const std::filesystem::path& state);

/**
 * Path of a program, also searched in the system programs' folders, which are not in an ordinary user's PATH.
 * Empty if not found.
 */
std::string find_system_program(const std::string& name);

/**
 * A sandbox seen from outside: the caller stays outside and starts processes in it. One thread at a time.
 */
class Sandbox {
public:
    /** Sets one up. Error::refused means that the kernel does not allow it. */
    static Result<Sandbox> start(const Options& options);

    Sandbox(Sandbox&&) noexcept = default;
    Sandbox& operator=(Sandbox&& other) noexcept;
    /** Calls stop(). */
    ~Sandbox();

    /**
     * Kills every process in the sandbox and waits until the last one is gone. Reaps children started through
     * this object.
     */
    void stop();

    /** See child_process.h; the command's environment takes precedence over the sandbox's. */
    Result<pid_t> spawn(Role role, Command command);
    Result<pid_t> spawn(Role role, const std::function<int()>& body);
    Result<orvan_common::UniqueFd> make_descriptor(Role role, const std::function<int()>& make);
    /** spawn and wait_for in one. */
    Result<int> run(Role role, Command command);
    Result<int> run(Role role, const std::function<int()>& body);

    pid_t init_pid() const { return m_init; }
    ino_t network_id() const { return m_network_id; }
    int modules() const { return static_cast<int>(m_roles.size()) - role_count(0); }
    const std::filesystem::path& state() const { return m_state; }
    const Environment& environment() const { return m_environment; }
    /** Path by which other processes of the same user open the role's network namespace. */
    std::string network_path(Role role) const;

private:
    Sandbox() = default;
    bool has(Role role) const { return role.index() < static_cast<int>(m_roles.size()); }
    Result<pid_t> keep(Result<pid_t> started);

    struct Pid {
        pid_t value = -1;
        Pid() = default;
        Pid(pid_t pid) : value(pid) {}
        Pid(Pid&& other) noexcept : value(std::exchange(other.value, -1)) {}
        Pid& operator=(Pid&& other) noexcept
        {
            value = std::exchange(other.value, -1);
            return *this;
        }
        operator pid_t() const { return value; }
    };

    Pid m_init;
    orvan_common::UniqueFd m_link;
    ino_t m_network_id = 0;
    std::filesystem::path m_state;
    Environment m_environment;
    std::vector<int> m_network_fds; /**< numbers in the first process */
    std::vector<Membership> m_roles;
    std::vector<orvan_common::UniqueFd> m_children;
};

/** The sandbox as held by a process that has entered it. */
class Inside {
public:
    int modules() const { return static_cast<int>(m_networks.size()) - role_count(0); }

private:
    friend Result<Inside> enter(const Options& options);
    friend class RoleScope;
    std::vector<orvan_common::UniqueFd> m_networks;
};

/**
 * Moves the calling program into a new sandbox, into the controller's role: when this returns without an
 * error, it runs in a child, and the original process only waits for that child and ends in the same way
 * (exit status or signal). Call it while the program has one thread, as others are not moved. Environment
 * variables are set as in sandbox_environment(). On an error the caller is the original process, unchanged.
 */
Result<Inside> enter(const Options& options);

/**
 * Puts the calling thread into the role's network namespace for its lifetime; sockets made meanwhile stay
 * there. For a process that has entered a sandbox.
 */
class RoleScope {
public:
    RoleScope(const Inside& inside, Role role);
    RoleScope(const RoleScope&) = delete;
    RoleScope& operator=(const RoleScope&) = delete;
    ~RoleScope();
    /** False when there is no such role or the kernel refused; the thread is then not moved. */
    bool entered() const { return m_entered; }

private:
    orvan_common::UniqueFd m_back;
    bool m_entered = false;
};

} // namespace orvan_sandbox

#endif
