#include "interposed_calls.h"

#include <algorithm>
#include <cerrno>

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

thread_local InterposedCalls* g_watcher = nullptr;
thread_local bool g_interrupted = false;

// False when the call is to fail with the error now in errno.
bool let_through(const char* name)
{
    if (g_watcher == nullptr) {
        return true;
    }
    if (g_watcher->interrupt) {
        g_interrupted = !g_interrupted;
        if (g_interrupted) {
            errno = EINTR;
            return false;
        }
    }
    if (g_watcher->failing == name) {
        errno = g_watcher->failure;
        return false;
    }
    g_watcher->calls.emplace_back(name);
    return true;
}

size_t limited(size_t size)
{
    const bool limit = g_watcher != nullptr && g_watcher->most_bytes != 0;
    return limit ? std::min(size, g_watcher->most_bytes) : size;
}

} // namespace

InterposedCalls::InterposedCalls()
{
    g_watcher = this;
    g_interrupted = false;
}

InterposedCalls::~InterposedCalls()
{
    g_watcher = nullptr;
}

extern "C" {

ssize_t write(int fd, const void* data, size_t size)
{
    return let_through("write") ? ::syscall(SYS_write, fd, data, limited(size)) : -1;
}

ssize_t read(int fd, void* data, size_t size)
{
    return let_through("read") ? ::syscall(SYS_read, fd, data, limited(size)) : -1;
}

int fsync(int fd)
{
    struct stat info = {};
    ::fstat(fd, &info);
    const char* name = S_ISDIR(info.st_mode) ? "fsync folder" : "fsync file";
    return let_through(name) ? static_cast<int>(::syscall(SYS_fsync, fd)) : -1;
}

int rename(const char* from, const char* to) noexcept
{
    if (g_watcher != nullptr) {
        g_watcher->renamed_from = from;
    }
    return let_through("rename") ? static_cast<int>(::syscall(SYS_renameat2, -100, from, -100, to, 0)) : -1;
}
}
