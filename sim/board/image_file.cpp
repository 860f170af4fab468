#include "board/image_file.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace sim_board {

ImageFile::ImageFile(std::string path) : m_path(std::move(path))
{
    if (m_path.empty()) {
        return;
    }
    m_fd = ::open(m_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (m_fd < 0) {
        throw std::system_error(errno, std::generic_category(), m_path);
    }
}

ImageFile::~ImageFile()
{
    if (m_fd >= 0) {
        ::close(m_fd);
    }
}

std::vector<uint8_t> ImageFile::load(size_t size, uint8_t fill) const
{
    std::vector<uint8_t> bytes(size, fill);
    size_t done = 0;
    while (m_fd >= 0 && done < size) {
        const ssize_t count = ::pread(m_fd, bytes.data() + done, size - done, static_cast<off_t>(done));
        if (count < 0) {
            throw std::system_error(errno, std::generic_category(), m_path);
        }
        if (count == 0) {
            break;
        }
        done += static_cast<size_t>(count);
    }
    return bytes;
}

void ImageFile::store(size_t offset, std::span<const uint8_t> bytes)
{
    while (m_fd >= 0 && !bytes.empty()) {
        const ssize_t count = ::pwrite(m_fd, bytes.data(), bytes.size(), static_cast<off_t>(offset));
        if (count <= 0) {
            throw std::system_error(errno, std::generic_category(), m_path);
        }
        offset += static_cast<size_t>(count);
        bytes = bytes.subspan(static_cast<size_t>(count));
    }
}

} // namespace sim_board
