#include "usb_links.h"

#include <filesystem>

#include <sys/mount.h>

#include "orvan_sandbox/addresses.h"

namespace orvan_sandbox {

namespace fs = std::filesystem;

namespace {

const fs::path kClassNet = "/sys/class/net";

/** Devices and drivers are in hidden folders of the same tree, as the rest of /sys is the machine's.
 */
void add_adapter(const std::string& interface, const std::string& device, const std::string& driver,
                 std::error_code& code)
{
    fs::create_directories(kClassNet / interface, code);
    fs::create_directories(kClassNet / ".drivers" / driver, code);
    fs::create_directories(kClassNet / ".devices" / device, code);
    fs::create_directory_symlink("../../.drivers/" + driver, kClassNet / ".devices" / device / "driver",
                                 code);
    fs::create_directory_symlink("../.devices/" + device, kClassNet / interface / "device", code);
}

} // namespace

Failure mount_usb_links(int modules)
{
    if (::mount("tmpfs", kClassNet.c_str(), "tmpfs", MS_NOSUID | MS_NODEV | MS_NOEXEC, "mode=755") != 0) {
        return namespace_failure("mounting a private /sys/class/net");
    }
    std::error_code code;
    fs::create_directory(kClassNet / "lo", code);
    add_adapter(kLanInterface, "fd580000.ethernet", "bcmgenet", code);
    for (int module = 1; module <= modules; ++module) {
        add_adapter(module_interface(module), "1-1." + std::to_string(module) + ":1.0", "rndis_host", code);
    }
    if (!fs::exists(kClassNet / kLanInterface / "device" / "driver", code)) {
        return Error{"filling /sys/class/net", code.value(), "", "", false};
    }
    return std::nullopt;
}

} // namespace orvan_sandbox
