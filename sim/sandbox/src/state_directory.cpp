#include "orvan_sandbox/sandbox.h"

namespace orvan_sandbox {

namespace fs = std::filesystem;

namespace {

constexpr const char* kFolders[] = {
    "halde/json", "halde/config", "halde/preset", "halde/upgrade/orvanx", "board", "log", "run",
};

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
