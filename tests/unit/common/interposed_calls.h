/**
 * Records the system calls by which the libraries write files, and injects faults.
 *
 * The program's own `write`, `read`, `fsync` and `rename` override the C library's, so that the
 * libraries call them.
 */
#ifndef TESTS_COMMON_INTERPOSED_CALLS_H
#define TESTS_COMMON_INTERPOSED_CALLS_H

#include <string>
#include <vector>

class InterposedCalls {
public:
    /** Starts recording the calling thread's calls; at most one object at a time. */
    InterposedCalls();
    ~InterposedCalls();
    InterposedCalls(const InterposedCalls&) = delete;
    InterposedCalls& operator=(const InterposedCalls&) = delete;

    /** Calls so far that were let through: "write", "fsync file", "fsync folder", "rename", "read". */
    std::vector<std::string> calls;
    /** The source of the last `rename`, let through or not. */
    std::string renamed_from;
    /** Every other call fails with EINTR before anything is done, the first one too. */
    bool interrupt = false;
    /** `write` and `read` move at most this many bytes; 0 is no limit. */
    size_t most_bytes = 0;
    /** Name of a call in `calls` that fails, and its error. */
    std::string failing;
    int failure = 0;
};

#endif
