#ifndef ORVAN_SERVICE_PROCESS_H
#define ORVAN_SERVICE_PROCESS_H

#include <cstddef>

#include "process/stop_request.h"

namespace orvan_service {

using orvan_common::ignore_broken_pipes;
using orvan_common::StopRequest;

/**
 * Maximum number of open descriptors. Each client uses one, and each frame of the maintenance protocol leaks
 * one per module; when they run out, the process ends and is restarted. A higher limit would only let it use
 * more kernel memory until then.
 */
inline constexpr size_t kMostDescriptors = 4096;

/**
 * Sets the limit of open descriptors to the hard limit, at most to kMostDescriptors.
 *
 * @return the limit now in effect.
 */
size_t raise_descriptor_limit();

/** Stack size of a thread of this process, in bytes. */
#ifdef __SANITIZE_THREAD__
inline constexpr size_t kThreadStack =
    8 * 1024 * 1024; // ThreadSanitizer's thread-local data alone exceeds the other size
#else
inline constexpr size_t kThreadStack = size_t{512} << 10;
#endif

/**
 * Sets the stack size of all threads started from now on to kThreadStack: the library uses threads created by
 * the standard library and by timers, whose size cannot be set individually. The default, 8 MiB of address
 * space per thread, is too much with 3 GiB in total.
 */
void limit_thread_stacks();

/** Opens the system log for the whole process; messages below `level` are dropped at once. */
void open_log(int level, bool to_stderr);

/**
 * Exits the process without running the destructors of static objects and of the device. They would wait for
 * sleeping threads, half a minute for the built-in tests and two minutes for a fan, and threads still running
 * must not see objects destroyed. So the caller must first stop whatever needs an orderly end.
 *
 * Of the standard streams only standard output is flushed: any other may be locked by a thread for good, or
 * be the one in which syslog() is composing a line.
 */
[[noreturn]] void leave(int exit_code);

} // namespace orvan_service

#endif
