#include "board/descriptor.h"

#include <cerrno>
#include <string_view>

#include <sys/mman.h>
#include <unistd.h>

namespace sim_board {
namespace {

constexpr std::string_view kMark = "simulated board handle: ";

} // namespace

int open_descriptor(const std::string& name)
{
    const int fd = ::memfd_create("board-handle", MFD_CLOEXEC);
    if (fd < 0) {
        return -1;
    }
    const std::string content = std::string(kMark) + name;
    if (::write(fd, content.data(), content.size()) != static_cast<ssize_t>(content.size())) {
        const int error = errno;
        ::close(fd);
        errno = error;
        return -1;
    }
    return fd;
}

std::string descriptor_name(int fd)
{
    char content[128];
    const ssize_t size = ::pread(fd, content, sizeof content, 0);
    const std::string_view text(content, size > 0 ? static_cast<size_t>(size) : 0);
    return text.starts_with(kMark) ? std::string(text.substr(kMark.size())) : std::string();
}

} // namespace sim_board
