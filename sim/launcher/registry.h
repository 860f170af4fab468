#ifndef ORVAN_SIM_LAUNCHER_REGISTRY_H
#define ORVAN_SIM_LAUNCHER_REGISTRY_H

#include <filesystem>
#include <string>
#include <vector>

#include "orvan_sandbox/error.h"

namespace orvan_launcher {

/**
 * A user's instances: a folder with one link each, named after the launcher's process id, to the state
 * directory. `${XDG_RUNTIME_DIR}/orvan-sim-UID`, or below /tmp when that variable is not set.
 */
class Registry {
public:
    /**
     * The user's registry; its folder is made by the first add(). An error when the folder belongs to another
     * user.
     */
    static orvan_sandbox::Result<Registry> open();

    /** Registers this process with its state directory. False when the link could not be made. */
    bool add(const std::filesystem::path& state) const;
    /** Undoes add(). */
    void remove() const;

    /** State directories of the running instances. */
    std::vector<std::filesystem::path> running() const;

    /**
     * Cleans up after killed launchers: removes their links and their temporary state directories.
     * \param own  state directory whose lock the caller holds and that is not yet added: it is kept, and
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
 * The state directory that a verb works on: the given one, which must be running, or else the only running
 * one.
 */
orvan_sandbox::Result<std::filesystem::path> choose_instance(const std::string& named);

} // namespace orvan_launcher

#endif
