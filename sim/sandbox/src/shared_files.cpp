#include "shared_files.h"

namespace orvan_sandbox {

namespace fs = std::filesystem;

fs::path find_shared(const fs::path& name)
{
    std::error_code code;
    const fs::path program = fs::read_symlink("/proc/self/exe", code);
    for (const fs::path& folder :
         {program.parent_path().parent_path() / "share/orvan", fs::path(ORVAN_BUILD_SHARE)}) {
        if (fs::exists(folder / name, code)) {
            return folder / name;
        }
    }
    return {};
}

} // namespace orvan_sandbox
