#include "shared_files.h"

namespace orvan_sandbox {

namespace fs = std::filesystem;

namespace {

fs::path folder_of_program()
{
    std::error_code code;
    return fs::read_symlink("/proc/self/exe", code).parent_path();
}

} // namespace

fs::path find_shared(const fs::path& name)
{
    std::error_code code;
    for (const fs::path& folder :
         {folder_of_program().parent_path() / "share/orvan", fs::path(ORVAN_BUILD_TREE "/share/orvan")}) {
        if (fs::exists(folder / name, code)) {
            return folder / name;
        }
    }
    return {};
}

std::vector<fs::path> program_folders()
{
    // Not the whole installation prefix, which may be a home.
    const fs::path programs = folder_of_program();
    const fs::path prefix = programs.parent_path();
    return {ORVAN_SOURCE_TREE, ORVAN_BUILD_TREE, programs, prefix / "lib", prefix / "share/orvan"};
}

} // namespace orvan_sandbox
