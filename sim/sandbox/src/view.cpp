#include <cstdlib>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "mounts.h"
#include "shared_files.h"

namespace orvan_sandbox {

namespace fs = std::filesystem;

namespace {

/** System accounts have homes such as /usr/sbin, which do not belong to them. */
bool is_own_home(const fs::path& home)
{
    struct stat status = {};
    return home.is_absolute() && home != "/" && ::stat(home.c_str(), &status) == 0 &&
           S_ISDIR(status.st_mode) && status.st_uid == ::geteuid();
}

std::vector<fs::path> own_homes()
{
    std::vector<fs::path> homes;
    const passwd* entry = ::getpwuid(::geteuid());
    for (const char* name : {std::getenv("HOME"), entry != nullptr ? entry->pw_dir : nullptr}) {
        std::error_code code;
        const fs::path home = name != nullptr ? fs::canonical(name, code) : fs::path();
        if (!code && is_own_home(home)) {
            homes.push_back(home);
        }
    }
    return homes;
}

} // namespace

View view_for_caller(const fs::path& state)
{
    return View{state, own_homes(), program_folders()};
}

} // namespace orvan_sandbox
