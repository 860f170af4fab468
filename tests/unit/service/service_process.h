/**
 * The service program as a child, with the stand-ins of privileged commands first in its PATH.
 */
#ifndef ORVAN_TESTS_SERVICE_PROCESS_H
#define ORVAN_TESTS_SERVICE_PROCESS_H

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

#include <unique_fd.h>

namespace orvan_test {

class ServiceProcess {
public:
    struct Start {
        std::vector<std::string> arguments;
        std::vector<std::pair<std::string, std::string>> environment = {};
        /** Listening socket that becomes the child's descriptor 3, announced by LISTEN_FDS; -1 for none. */
        int listener = -1;
        /** In a private network without links, named by ORVAN_SANDBOX, with a private host name, /home/orvan
         * and /dev/shm. */
        bool in_own_namespaces = false;
    };

    explicit ServiceProcess(const Start& start);
    /** Kills the child if it still runs. */
    ~ServiceProcess();
    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;

    void signal(int number);
    /** Exit code; -1 if it did not exit by itself within `bound`. */
    int exit_code(std::chrono::milliseconds bound = std::chrono::seconds(20));
    /** Its standard error up to and including `end`; all of it if it exited before. */
    std::string errors_until(const std::string& end);
    /** All its standard error, once it has exited. */
    std::string errors();
    /** Exit code when the kernel refuses the namespace. */
    static constexpr int kNoNamespace = 126;

    pid_t pid() const { return m_pid; }

private:
    bool read_more();

    pid_t m_pid = -1;
    orvan_common::UniqueFd m_errors;
    std::string m_text;
};

} // namespace orvan_test

#endif
