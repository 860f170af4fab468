#ifndef ORVAN_SERVICE_PROCESS_H
#define ORVAN_SERVICE_PROCESS_H

#include <cstddef>

#include <unique_fd.h>

namespace orvan_service {

/** A client or a module that closes its side at the wrong moment must not end the process. */
void ignore_broken_pipes();

/**
 * As many descriptors as the process opens. Each client takes one, and each frame of the maintenance protocol
 * one for each module, for good; when there are no more, the process ends and is started anew. A higher limit
 * would only let it take more memory of the kernel until then.
 */
inline constexpr size_t kMostDescriptors = 4096;

/**
 * Sets the limit of open descriptors to the hard limit, at most to kMostDescriptors.
 *
 * @return the limit now in force.
 */
size_t raise_descriptor_limit();

/** What a thread of this process has for its stack, in bytes. */
inline constexpr size_t kThreadStack = size_t{512} << 10;

/**
 * Gives each thread that starts from now on a stack of kThreadStack, whoever starts it: the library has
 * threads of the standard library's and of a timer's, none of which can be given a size of its own. The
 * default, 8 MiB of address space a thread, is too much where there are 3 GiB in all.
 */
void limit_thread_stacks();

/** Opens the system log for the whole process; messages below `level` are dropped at once. */
void open_log(int level, bool to_stderr);

/**
 * SIGTERM, SIGINT and request() as a descriptor that becomes, and stays, readable at the first of them. One
 * object at a time in a process; its end restores the signals.
 *
 * The signals are caught and not blocked: a blocked signal would stay so in the programs that the library
 * starts.
 */
class StopRequest {
public:
    StopRequest();
    ~StopRequest();
    StopRequest(const StopRequest&) = delete;
    StopRequest& operator=(const StopRequest&) = delete;

    int descriptor() const { return m_event.get(); }

    /** Asks for the same from within the process. Any thread; does nothing without an object. */
    static void request();

private:
    UniqueFd m_event;
};

/**
 * Ends the process past the destructors of static objects and of the device. They would wait for the pauses
 * of threads, half a minute that of the built-in tests and two that of a fan, and other threads may be at
 * work still that must not see objects destroyed. So whoever calls this has ended what needs an end before.
 *
 * Of the standard streams only standard output is flushed: any other may be locked by its thread for good, or
 * be the one in which syslog() composes a line at that moment.
 */
[[noreturn]] void leave(int exit_code);

} // namespace orvan_service

#endif
