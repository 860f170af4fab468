#include "mounts.h"

#include <cerrno>
#include <filesystem>
#include <vector>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace orvan_sandbox {

namespace fs = std::filesystem;

namespace {

constexpr const char* kSharedMemory = "/dev/shm";
constexpr const char* kStage = "/dev/shm/.home";

Failure bind_mount(const fs::path& from, const fs::path& to)
{
    if (mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
        return namespace_failure("binding " + from.string() + " into the sandbox");
    }
    return std::nullopt;
}

Failure make_folder(const fs::path& folder)
{
    if (mkdir(folder.c_str(), 0755) != 0 && errno != EEXIST) {
        return system_failure("making " + folder.string());
    }
    return std::nullopt;
}

Failure reproduce_entry(const fs::path& from, const fs::path& to)
{
    std::error_code code;
    const fs::file_status status = fs::symlink_status(from, code);
    if (fs::is_symlink(status)) {
        fs::copy_symlink(from, to, code);
        return std::nullopt;
    }
    if (fs::is_directory(status)) {
        if (Failure failure = make_folder(to)) {
            return failure;
        }
    } else if (mknod(to.c_str(), S_IFREG | 0644, 0) != 0) {
        return system_failure("making " + to.string());
    }
    return bind_mount(from, to);
}

/// Makes all entries of a folder but one visible in another folder.
Failure reproduce_folder(const fs::path& from, const fs::path& to, const char* left_out)
{
    std::error_code code;
    for (fs::directory_iterator entry(from, code), end; !code && entry != end; entry.increment(code)) {
        if (entry->path().filename() == left_out) {
            continue;
        }
        if (Failure failure = reproduce_entry(entry->path(), to / entry->path().filename())) {
            return failure;
        }
    }
    return std::nullopt;
}

} // namespace

Failure make_mounts_private()
{
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        return namespace_failure("making the mounts private");
    }
    return std::nullopt;
}

Failure mount_shared_memory()
{
    if (mount("tmpfs", kSharedMemory, "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777") != 0) {
        return namespace_failure("mounting a private /dev/shm");
    }
    return std::nullopt;
}

Failure mount_home(int halde_fd)
{
    // An ordinary user cannot make /home/orvan. So a new /home is put together where one can, and then moved.
    const fs::path stage = kStage;
    if (Failure failure = make_folder(stage)) {
        return failure;
    }
    if (mount("tmpfs", stage.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "mode=755") != 0) {
        return namespace_failure("mounting a private /home");
    }
    if (Failure failure = reproduce_folder("/home", stage, "orvan")) {
        return failure;
    }
    if (Failure failure = make_folder(stage / "orvan")) {
        return failure;
    }
    if (Failure failure = reproduce_folder("/home/orvan", stage / "orvan", "halde")) {
        return failure;
    }
    if (Failure failure = make_folder(stage / "orvan/halde")) {
        return failure;
    }
    if (Failure failure = bind_mount("/proc/self/fd/" + std::to_string(halde_fd), stage / "orvan/halde")) {
        return failure;
    }
    if (mount(stage.c_str(), "/home", nullptr, MS_MOVE, nullptr) != 0) {
        return namespace_failure("moving the private /home into place");
    }
    rmdir(stage.c_str());
    return std::nullopt;
}

Failure mount_proc()
{
    if (mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0 && errno != EPERM) {
        return namespace_failure("mounting /proc");
    }
    return std::nullopt;
}

} // namespace orvan_sandbox
