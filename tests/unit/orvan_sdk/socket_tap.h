/**
 * Records the write() and setsockopt() calls of the process on one descriptor, and injects faults.
 *
 * Linking it replaces both functions of the whole program; without a live tap calls pass through.
 */
#ifndef ORVAN_TESTS_SOCKET_TAP_H
#define ORVAN_TESTS_SOCKET_TAP_H

#include <string>
#include <vector>

namespace orvan_test {

/** One at a time in a process. */
class SocketTap {
public:
    static constexpr int kAnyDescriptor = -1;

    explicit SocketTap(int fd);
    ~SocketTap();
    SocketTap(const SocketTap&) = delete;
    SocketTap& operator=(const SocketTap&) = delete;

    /** The calls in their order: "write 5", "write -1", "TCP_CORK=1", "TCP_CORK=0". */
    std::vector<std::string> calls() const;

    /** A later write() takes at most `bytes`. Faults queue up, one for each write. */
    void shorten_write(size_t bytes);
    /** A later write() fails with this errno and takes nothing. */
    void fail_write(int error);
    /** Every setsockopt() of this option fails with this errno. */
    void fail_option(int level, int name, int error);
};

} // namespace orvan_test

#endif
