#ifndef ORVAN_SIM_SANDBOX_SHARED_FILES_H
#define ORVAN_SIM_SANDBOX_SHARED_FILES_H

#include <filesystem>
#include <vector>

namespace orvan_sandbox {

/**
 * A file or folder in share/orvan: of the installation, next to the folder of the running program, or else of
 * the build tree. Empty if neither exists.
 */
std::filesystem::path find_shared(const std::filesystem::path& name);

/**
 * Folders with the running program and what it needs: those of an installation, the build tree and the source
 * tree. Some may not exist.
 */
std::vector<std::filesystem::path> program_folders();

} // namespace orvan_sandbox

#endif
