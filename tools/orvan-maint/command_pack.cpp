#include <cerrno>
#include <csignal>
#include <cstring>

#include "commands.h"
#include "console.h"
#include "failure.h"
#include "package.h"
#include <orvan_fs_utils.h>

namespace orvan_maint {

void pack_software(const Options& options, int)
{
    // It sends and changes nothing until it writes, so it may be interrupted at any time.
    sigset_t ends;
    ::sigemptyset(&ends);
    ::sigaddset(&ends, SIGINT);
    ::sigaddset(&ends, SIGTERM);
    ::sigprocmask(SIG_UNBLOCK, &ends, nullptr);

    const Platform& platform = *find_platform(options.platform);
    if (!options.force && OrvanFSUtils::ifFileExists(options.file.c_str())) {
        throw Failure(kExitBadFile, printable(options.file) + " already exists; --force replaces it");
    }
    const std::string bytes = build_package(platform, options.module, options.patch);
    const Package package = check_package(bytes, options.file, platform);
    ::sigprocmask(SIG_BLOCK, &ends, nullptr); // leave no temporary file
    if (!OrvanFSUtils::replaceFile(options.file.c_str(), bytes.data(), bytes.size())) {
        throw Failure(kExitBadFile, printable(options.file) + " cannot be written: " + std::strerror(errno));
    }
    say(options.file + ": " + std::to_string(bytes.size()) + " bytes for a " + platform.name + ", with " +
        std::to_string(package.module_size) + " bytes of software for the modules and " +
        std::to_string(package.controller_files) + " files for the controller");
}

} // namespace orvan_maint
