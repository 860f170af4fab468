#ifndef ORVAN_SIM_SANDBOX_SETUP_REPORT_H
#define ORVAN_SIM_SANDBOX_SETUP_REPORT_H

#include <sys/types.h>

#include "failure.h"
#include "orvan_sandbox/role.h"

namespace orvan_sandbox {

/**
 * What a helper process reports to its parent over a pipe or socket pair: plain data, smaller than PIPE_BUF,
 * so that it is written and read in one piece.
 */
struct SetupReport {
    bool failed = false;
    bool refused = false;
    int code = 0;
    char step[160] = {};
    char detail[512] = {};
    char hint[160] = {};
    pid_t pid = -1;
    ino_t network_id = 0;
    int networks = 0;
    int network_fds[role_count(kMaxModules)] = {};

    void set(const Error& error);
    Error error() const;
};

/** False when the other end is gone or the report was incomplete. */
bool send_report(int fd, const SetupReport& report);
bool receive_report(int fd, SetupReport& report);

} // namespace orvan_sandbox

#endif
