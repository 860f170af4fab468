#ifndef ORVAN_SIM_SANDBOX_STAND_INS_H
#define ORVAN_SIM_SANDBOX_STAND_INS_H

#include <filesystem>

namespace orvan_sandbox {

/**
 * Folder of the stand-ins: share/orvan/stand-ins beside the folder of the running program, where an
 * installation has it, or else the build tree's. Empty when there is neither.
 */
std::filesystem::path find_stand_ins();

} // namespace orvan_sandbox

#endif
