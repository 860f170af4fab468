#ifndef ORVAN_SERVICE_COUNTERS_LIBRARY_ERRORS_H
#define ORVAN_SERVICE_COUNTERS_LIBRARY_ERRORS_H

#include "service/executor.h"
#include "service/hang_watch.h"

namespace orvan_service {

/**
 * Counts the errors of raw clients, which are only in the replies that the library writes. Those of standard
 * sessions are counted by the sessions. One at a time in a process, as the library has one observer.
 */
class LibraryErrors {
public:
    /** @param watch executes the messages @param executor, watch outlive this object */
    LibraryErrors(Executor& executor, const HangWatch& watch);
    ~LibraryErrors();
    LibraryErrors(const LibraryErrors&) = delete;
    LibraryErrors& operator=(const LibraryErrors&) = delete;
};

} // namespace orvan_service

#endif
