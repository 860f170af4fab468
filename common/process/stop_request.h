/**
 * The signals of a process that serves.
 */
#ifndef ORVAN_PROCESS_STOP_REQUEST_H
#define ORVAN_PROCESS_STOP_REQUEST_H

#include <unique_fd.h>

namespace orvan_common {

/** Ignores SIGPIPE: a client or module closing its side at the wrong moment must not end the process. */
void ignore_broken_pipes();

/**
 * SIGTERM, SIGINT and request() as a descriptor that becomes, and stays, readable at the first of them. Only
 * one object at a time per process; its destruction restores the signals.
 *
 * The signals are caught rather than blocked: programs started by the library would inherit a blocked signal.
 */
class StopRequest {
public:
    StopRequest();
    ~StopRequest();
    StopRequest(const StopRequest&) = delete;
    StopRequest& operator=(const StopRequest&) = delete;

    int descriptor() const { return m_event.get(); }

    /** Requests a stop from within the process. Any thread; does nothing without an object. */
    static void request();

private:
    UniqueFd m_event;
};

} // namespace orvan_common

#endif
