/**
 * Owner of a file descriptor. Header-only.
 */
#ifndef ORVAN_UNIQUE_FD_H
#define ORVAN_UNIQUE_FD_H

#include <utility>

#include <unistd.h>

namespace orvan_common {

/** Owns a file descriptor and closes it on destruction; negative means none. */
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

    /** Returns the descriptor and gives up ownership. */
    int release() { return std::exchange(m_fd, -1); }

    /** Closes the current descriptor and takes another, or none. */
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

} // namespace orvan_common

#endif
