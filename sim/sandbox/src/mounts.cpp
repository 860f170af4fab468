#include "mounts.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include "mount_copies.h"
#include <unique_fd.h>

using orvan_common::UniqueFd;

namespace orvan_sandbox {

namespace fs = std::filesystem;

namespace {

struct PrivateFolder {
    const char* path;
    const char* options;
};

constexpr const char* kHomeOptions = "mode=755";

constexpr PrivateFolder kPrivateFolders[] = {
    {"/dev/shm", "mode=1777"}, {"/tmp", "mode=1777"},   {"/run", "mode=755"},
    {"/home", kHomeOptions},   {"/root", kHomeOptions},
};

constexpr const char* kHalde = "/home/orvan/halde";

constexpr const char* kDevices[] = {"/dev/null",   "/dev/zero",    "/dev/full",
                                    "/dev/random", "/dev/urandom", "/dev/tty"};

/** These belong to the machine, not to a process; root could write them from any namespace. */
constexpr const char* kMachineInProc[] = {"/proc/sys", "/proc/sysrq-trigger", "/proc/irq", "/proc/bus",
                                          "/proc/fs",  "/proc/acpi",          "/proc/scsi"};

/** These exist per user namespace. */
constexpr const char* kLimits = "/proc/sys/user";

bool is_there(const fs::path& path)
{
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0;
}

Failure bind_mount(const fs::path& from, const fs::path& to)
{
    if (::mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
        return namespace_failure("binding " + from.string() + " to " + to.string());
    }
    return std::nullopt;
}

/** Unlike a remount this keeps all other flags, which a user namespace has locked. */
Failure change_mount(const fs::path& path, unsigned flags, uint64_t set, uint64_t clear)
{
    mount_attr attributes = {};
    attributes.attr_set = set;
    attributes.attr_clr = clear;
    if (::mount_setattr(AT_FDCWD, path.c_str(), flags, &attributes, sizeof attributes) != 0) {
        return namespace_failure("changing the mount of " + path.string());
    }
    return std::nullopt;
}

Failure protect_machine()
{
    if (Failure failure = change_mount("/", AT_RECURSIVE, MOUNT_ATTR_RDONLY | MOUNT_ATTR_NODEV, 0)) {
        return failure;
    }
    for (const char* device : kDevices) {
        if (!is_there(device)) {
            continue;
        }
        Failure failure = bind_mount(device, device);
        failure = failure ? failure : change_mount(device, 0, 0, MOUNT_ATTR_NODEV);
        if (failure) {
            return failure;
        }
    }
    return std::nullopt;
}

Failure mount_private_folder(const fs::path& path, const char* options)
{
    if (is_there(path) && ::mount("tmpfs", path.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, options) != 0) {
        return namespace_failure("mounting a private " + path.string());
    }
    return std::nullopt;
}

Failure mount_private_folders(const std::vector<fs::path>& homes)
{
    for (const PrivateFolder& folder : kPrivateFolders) {
        if (Failure failure = mount_private_folder(folder.path, folder.options)) {
            return failure;
        }
    }
    for (const fs::path& home : homes) {
        if (Failure failure = mount_private_folder(home, kHomeOptions)) {
            return failure;
        }
    }
    return std::nullopt;
}

bool is_seen(const UniqueFd& copy, const fs::path& folder)
{
    struct stat copied = {};
    struct stat seen = {};
    return ::fstat(copy.get(), &copied) == 0 && ::stat(folder.c_str(), &seen) == 0 &&
           copied.st_dev == seen.st_dev && copied.st_ino == seen.st_ino;
}

Failure attach_writable(const UniqueFd& copy, const fs::path& folder)
{
    const Failure failure = attach_copy(copy, folder);
    return failure ? failure : change_mount(folder, 0, 0, MOUNT_ATTR_RDONLY);
}

} // namespace

Failure make_mounts_private()
{
    if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        return namespace_failure("making the mounts private");
    }
    return std::nullopt;
}

Failure mount_view(const View& view)
{
    if (Failure failure = protect_machine()) {
        return failure;
    }
    // Copies of the folders, before anything is mounted over them.
    Result<UniqueFd> state = copy_mounts(view.state);
    Result<UniqueFd> halde = copy_mounts(view.state / "halde");
    if (!state || !halde) {
        return (state ? halde : state).error();
    }
    std::vector<std::pair<fs::path, UniqueFd>> shown;
    for (const fs::path& folder : view.shown) {
        // A folder that the caller cannot open is of no use inside either.
        if (Result<UniqueFd> copy = copy_mounts(folder)) {
            shown.emplace_back(folder, std::move(*copy));
        }
    }
    Failure failure = mount_private_folders(view.homes);
    for (const auto& [folder, copy] : shown) {
        if (!failure && !is_seen(copy, folder)) {
            failure = attach_copy(copy, folder);
        }
    }
    failure = failure ? failure : attach_writable(*state, view.state);
    return failure ? failure : attach_writable(*halde, kHalde);
}

Failure mount_proc()
{
    if (::mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0) {
        if (errno != EPERM) {
            return namespace_failure("mounting /proc");
        }
        // Needed only by a sandbox within the sandbox, which writes its id maps there.
        static_cast<void>(change_mount("/proc", 0, 0, MOUNT_ATTR_RDONLY));
    }
    for (const char* path : kMachineInProc) {
        if (!is_there(path)) {
            continue;
        }
        Failure failure = bind_mount(path, path);
        failure = failure ? failure : change_mount(path, AT_RECURSIVE, MOUNT_ATTR_RDONLY, 0);
        if (failure) {
            return failure;
        }
    }
    if (!is_there(kLimits)) {
        return std::nullopt;
    }
    const Failure failure = bind_mount(kLimits, kLimits);
    return failure ? failure : change_mount(kLimits, 0, 0, MOUNT_ATTR_RDONLY);
}

} // namespace orvan_sandbox
