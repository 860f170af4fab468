#ifndef ORVAN_SIM_LAUNCHER_REGISTRY_H
#define ORVAN_SIM_LAUNCHER_REGISTRY_H

#include <filesystem>
#include <string>
#include <vector>

#include "orvan_sandbox/error.h"

namespace orvan_launcher {

/**
 * The instances of a user: a folder with one link for each, named by the launcher's process id, to its state
 * directory. `${XDG_RUNTIME_DIR}/orvan-sim-UID`, or below /tmp when that variable is not set.
 */
class Registry {
public:
    /**
     * The user's registry; its folder is made by the first add(). An error when the folder is another
     * user's.
     */
    static orvan_sandbox::Result<Registry> open();

    /** Enters this process with its state directory. False when the link could not be made. */
    bool add(const std::filesystem::path& state) const;
    /** Takes that back. */
    void remove() const;

    /** State directories of the instances that run. */
    std::vector<std::filesystem::path> running() const;

    /**
     * Removes what launchers that were killed have left: their links, and their temporary state directories.
     * \param own  state directory that the caller holds the lock of and has not yet added: it is kept, and
     *             links to it are a killed launcher's
     */
    void sweep(const std::filesystem::path& own) const;

private:
    explicit Registry(std::filesystem::path folder) : m_folder(std::move(folder)) {}
    std::filesystem::path own_link() const;
    std::filesystem::path m_folder;
};

/** Where temporary state directories are made, and how their names begin. */
std::filesystem::path temporary_folder();
inline constexpr const char* kTemporaryPrefix = "orvan-sim-state-";

/**
 * The state directory that a verb works on: the named one, which must be running, or else the only one that
 * runs.
 */
orvan_sandbox::Result<std::filesystem::path> choose_instance(const std::string& named);

} // namespace orvan_launcher

#endif
