#ifndef ORVAN_SIM_SANDBOX_STAND_INS_H
#define ORVAN_SIM_SANDBOX_STAND_INS_H

#include <filesystem>

namespace orvan_sandbox {

/**
 * Folder of the stand-ins: share/orvan/stand-ins of the installation, next to the folder of the running
 * program, or else of the build tree. Empty if neither exists.
 */
std::filesystem::path find_stand_ins();

} // namespace orvan_sandbox

#endif
