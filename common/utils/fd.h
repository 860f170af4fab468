/**
 * A file descriptor with an owner, and calls on it that finish what they began.
 */
#ifndef ORVAN_UTILS_FD_H
#define ORVAN_UTILS_FD_H

#include <cstddef>
#include <utility>

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

/** Closes its descriptor; holds none when negative. */
class Fd {
public:
    explicit Fd(int fd) : m_fd(fd) {}
    Fd(Fd&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    Fd& operator=(Fd&&) = delete;
    ~Fd()
    {
        if (m_fd >= 0)
            close(m_fd);
    }

    int get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }

private:
    int m_fd;
};

/** As open(2) with O_CLOEXEC, again after a signal. */
Fd open_file(const char* path, int flags, mode_t mode = 0);

/** Reads exactly `size` bytes; false on an error or an earlier end. */
bool read_all(int fd, void* buffer, std::size_t size);

/** Writes all bytes; false on an error. */
bool write_all(int fd, const void* data, std::size_t size);

/** As fsync(2), again after a signal; false on an error. */
bool sync_file(int fd);

#endif
