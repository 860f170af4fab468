#include "fd.h"

#include <cerrno>

namespace orvan_common {
namespace {

// Repeats a system call for as long as signals interrupt it.
template <typename Call>
auto uninterrupted(Call call)
{
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

} // namespace

UniqueFd open_file(const char* path, int flags, mode_t mode)
{
    return UniqueFd(uninterrupted([&] { return ::open(path, flags | O_CLOEXEC, mode); }));
}

bool read_all(int fd, void* buffer, size_t size)
{
    auto* place = static_cast<char*>(buffer);
    while (size > 0) {
        const ssize_t count = uninterrupted([&] { return ::read(fd, place, size); });
        if (count <= 0) {
            return false;
        }
        place += count;
        size -= static_cast<size_t>(count);
    }
    return true;
}

bool write_all(int fd, const void* data, size_t size)
{
    const auto* place = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t count = uninterrupted([&] { return ::write(fd, place, size); });
        if (count < 0) {
            return false;
        }
        place += count;
        size -= static_cast<size_t>(count);
    }
    return true;
}

bool sync_file(int fd)
{
    return uninterrupted([&] { return ::fsync(fd); }) == 0;
}

} // namespace orvan_common
