#ifndef ORVAN_SERVICE_FILE_DESCRIPTOR_H
#define ORVAN_SERVICE_FILE_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace orvan_service {

/** Owner of one file descriptor; closes it when it goes. */
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int fd) : m_fd(fd) {}
    FileDescriptor(FileDescriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    ~FileDescriptor()
    {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
    }

    int get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }

private:
    int m_fd = -1;
};

} // namespace orvan_service

#endif
