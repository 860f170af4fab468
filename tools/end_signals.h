/** The signals that end a program, as a descriptor that it can wait for. */
#ifndef ORVAN_TOOLS_END_SIGNALS_H
#define ORVAN_TOOLS_END_SIGNALS_H

#include <signal.h>

#include <sys/signalfd.h>

namespace orvan_tools {

/**
 * Blocks SIGINT and SIGTERM in the calling thread, the first one of the program.
 *
 * @return a descriptor that becomes readable at the first of them and stays open until the program ends;
 *         negative on failure
 */
inline int block_end_signals()
{
    sigset_t ends;
    ::sigemptyset(&ends);
    ::sigaddset(&ends, SIGINT);
    ::sigaddset(&ends, SIGTERM);
    ::sigprocmask(SIG_BLOCK, &ends, nullptr);
    return ::signalfd(-1, &ends, SFD_CLOEXEC);
}

} // namespace orvan_tools

#endif
