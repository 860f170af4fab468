#include "mount_copies.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>

#include "orvan_sandbox/child_process.h"

using orvan_common::UniqueFd;

namespace orvan_sandbox {

namespace fs = std::filesystem;

namespace {

int open_copy(const fs::path& folder)
{
    return ::open_tree(AT_FDCWD, folder.c_str(), OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC | AT_RECURSIVE);
}

} // namespace

Result<UniqueFd> copy_mounts(const fs::path& folder)
{
    UniqueFd copy(open_copy(folder));
    if (!copy) {
        return namespace_failure("copying the mount of " + folder.string());
    }
    return copy;
}

Result<UniqueFd> copy_mounts_unprivileged(const fs::path& folder)
{
    Result<UniqueFd> copy = make_descriptor(
        Membership(), [&] { return ::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 ? open_copy(folder) : -1; });
    if (!copy) {
        Error error = copy.error();
        error.step = "copying the mount of " + folder.string();
        return error;
    }
    return copy;
}

Failure attach_copy(const UniqueFd& copy, const fs::path& folder)
{
    std::error_code code;
    fs::create_directories(folder, code);
    if (code) {
        return Error{"making " + folder.string(), code.value(), "", "", false};
    }
    if (::move_mount(copy.get(), "", AT_FDCWD, folder.c_str(), MOVE_MOUNT_F_EMPTY_PATH) != 0) {
        return namespace_failure("mounting " + folder.string());
    }
    return std::nullopt;
}

} // namespace orvan_sandbox
