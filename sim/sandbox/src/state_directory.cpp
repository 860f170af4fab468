#include "orvan_sandbox/sandbox.h"
#include "shared_files.h"

namespace orvan_sandbox {

namespace fs = std::filesystem;

namespace {

constexpr const char* kFolders[] = {
    "halde/json",
    "halde/config",
    "halde/preset/1",
    "halde/preset/2",
    "halde/preset/3",
    "halde/preset/4",
    "halde/upgrade/orvanx",
    "board",
    "log",
    "run",
};

constexpr const char* kFactorySetup = "json/ch0.json"; /**< of halde, and of the factory's files */

/** Installs the factory setup. An existing file is kept. */
Result<bool> install_factory_setup(const fs::path& state)
{
    const fs::path source = find_shared(fs::path("factory") / kFactorySetup);
    if (source.empty()) {
        return Error{"looking for the factory setup", 0, "not found",
                     "share/orvan/factory must be next to the program's folder", false};
    }
    const fs::path target = state / "halde" / kFactorySetup;
    std::error_code code;
    fs::copy_file(source, target, fs::copy_options::skip_existing, code);
    if (code) {
        return Error{"making " + target.string(), code.value(), "", "", false};
    }
    return true;
}

} // namespace

Result<fs::path> make_state_directory(const fs::path& state)
{
    if (state.empty()) {
        return Error{"making the state directory", 0, "no name given", "", false};
    }
    std::error_code code;
    for (const char* folder : kFolders) {
        fs::create_directories(state / folder, code);
        if (code) {
            return Error{"making " + (state / folder).string(), code.value(), "", "", false};
        }
    }
    if (Result<bool> installed = install_factory_setup(state); !installed) {
        return installed.error();
    }
    fs::path absolute = fs::canonical(state, code);
    if (code) {
        return Error{"resolving " + state.string(), code.value(), "", "", false};
    }
    if (absolute.string().starts_with("/dev/shm/")) {
        return Error{"using " + absolute.string() + " as state directory", 0, "it would be hidden",
                     "the sandbox has a /dev/shm of its own", false};
    }
    return absolute;
}

} // namespace orvan_sandbox
