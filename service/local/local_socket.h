#ifndef ORVAN_SERVICE_LOCAL_LOCAL_SOCKET_H
#define ORVAN_SERVICE_LOCAL_LOCAL_SOCKET_H

#include <chrono>
#include <string>
#include <vector>

#include <poll.h>
#include <sys/types.h>

#include <unique_fd.h>

namespace orvan_service {

/**
 * A listening Unix stream socket with a name in the file system, mode 0660 and of the group kGroup if the
 * machine has it, whose file is removed by end() and by the destructor. On the attendant's thread.
 *
 * A socket file that nobody listens on, as a killed process leaves it, is replaced; one that is in use is
 * left to the other process, and so is any other kind of file.
 */
class LocalSocket {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr const char* kGroup = "orvan"; /**< of the programs that may connect */

    /**
     * @param folder created, mode 0755, if it is missing; not those above it
     * @throws std::runtime_error with a text for the user
     */
    LocalSocket(const std::string& folder, const std::string& name);
    ~LocalSocket();
    LocalSocket(const LocalSocket&) = delete;
    LocalSocket& operator=(const LocalSocket&) = delete;

    const std::string& path() const { return m_path; }

    /** The descriptor to wait for; negative after end() and during a pause. */
    pollfd waiting();
    /** When waiting() changes by itself. */
    Clock::time_point due() const { return m_pause_end; }
    /** The next client, non-blocking; none if it is gone again. When the process is out of descriptors, which
     * is logged, there is a pause: the connection stays pending. */
    orvan_common::UniqueFd accept();

    /** Stops listening and removes the file. */
    void end();

private:
    const std::string m_path;
    orvan_common::UniqueFd m_socket;
    dev_t m_device = 0; // of the file
    ino_t m_inode = 0;
    Clock::time_point m_pause_end = Clock::time_point::max();
};

} // namespace orvan_service

#endif
