/**
 * A file descriptor with an owner. Nothing but this header is needed for it.
 */
#ifndef ORVAN_UNIQUE_FD_H
#define ORVAN_UNIQUE_FD_H

#include <utility>

#include <unistd.h>

/** Closes its descriptor when it goes; holds none when negative. */
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : m_fd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : m_fd(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept
    {
        reset(other.release());
        return *this;
    }
    ~UniqueFd() { reset(); }

    int get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }

    /** The descriptor, which is the caller's from now on. */
    int release() { return std::exchange(m_fd, -1); }

    /** Takes another one, or none, and closes the one that it had. */
    void reset(int fd = -1)
    {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
        m_fd = fd;
    }

private:
    int m_fd = -1;
};

#endif
