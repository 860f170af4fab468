#include "state_lock.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>

using orvan_common::UniqueFd;

namespace orvan_launcher {

namespace {

std::filesystem::path lock_file(const std::filesystem::path& state)
{
    return state / "run/lock";
}

} // namespace

UniqueFd lock_state(const std::filesystem::path& state)
{
    UniqueFd fd(::open(lock_file(state).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (fd && ::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
        const int code = errno;
        fd.reset();
        errno = code;
    }
    return fd;
}

bool is_running(const std::filesystem::path& state)
{
    const UniqueFd fd(::open(lock_file(state).c_str(), O_RDONLY | O_CLOEXEC));
    return fd && ::flock(fd.get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

} // namespace orvan_launcher
