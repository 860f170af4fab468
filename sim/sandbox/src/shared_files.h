#pragma once

#include <filesystem>

namespace orvan_sandbox {

/// A file or folder of share/orvan: beside the folder of the running program, where an installation has it,
/// or else the build tree's. Empty when there is neither.
std::filesystem::path find_shared(const std::filesystem::path& name);

} // namespace orvan_sandbox
