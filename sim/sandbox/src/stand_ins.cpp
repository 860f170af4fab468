#include "stand_ins.h"

#include <cstdlib>

#include "orvan_sandbox/sandbox.h"
#include "shared_files.h"

namespace orvan_sandbox {

namespace fs = std::filesystem;

fs::path find_stand_ins()
{
    return find_shared("stand-ins/sudo").parent_path();
}

Result<Environment> sandbox_environment(const fs::path& state, ino_t network_id)
{
    const fs::path stand_ins = find_stand_ins();
    if (stand_ins.empty()) {
        return Error{"looking for the stand-ins of sudo, reboot and the network scripts", 0, "not found",
                     "share/orvan/stand-ins must be next to the program's folder", false};
    }
    const char* path = std::getenv("PATH");
    const std::string usual = "/usr/local/bin:/usr/bin:/bin";
    const std::string rest = path != nullptr && *path != '\0' ? path : usual;
    Environment environment = {{"PATH", stand_ins.string() + ":" + rest},
                               {"ORVAN_STATE", state.string()},
                               {"ORVAN_BOARD_EEPROM", (state / "board" / "eeprom.bin").string()}};
    if (network_id != 0) {
        environment["TMPDIR"] = "/tmp"; // the caller's may be hidden
        environment[kSandboxVariable] = std::to_string(network_id);
    }
    return environment;
}

} // namespace orvan_sandbox
