/**
 * Command lines of the system.
 *
 * A line is run by "/bin/sh -c". Its standard input is empty, its standard error is the caller's, its
 * signals are at their defaults, and no other open descriptor of the caller reaches it: a daemon that
 * a script leaves behind holds none of the caller's sockets. The calls wait until the shell has ended,
 * without a time limit; processes that the line left in the background go on. They change nothing of
 * the calling process (no signal handling, no working directory), leave no child unreaped and may run
 * on any number of threads at once.
 *
 * Result of both calls:
 *
 * | Value           | Meaning                                                                  |
 * |-----------------|--------------------------------------------------------------------------|
 * | 0               | success                                                                  |
 * | 1 to 255        | exit code; 126 not executable and 127 not found are the shell's own      |
 * | 128 + n         | ended by signal n                                                        |
 * | -1              | not run, or the result is unknown since the process ignores SIGCHLD      |
 */
#ifndef SYS_CMD_H
#define SYS_CMD_H

#include <cstddef>

/**
 * Runs a command line whose standard output is the caller's.
 *
 * @param command the line; -1 when null
 */
int run_system_cmd(const char* command);

/**
 * Runs a command line and takes its standard output. Output past the buffer is read and dropped, so
 * that the line never waits for a reader. Output that a background process writes after the shell has
 * ended is not waited for.
 *
 * @param command the line; -1 when null
 * @param buffer  gets the output as it comes, at most `size` - 1 bytes, and always a terminating zero,
 *                whatever the result
 * @param size    size of `buffer`; -1 with nothing run when `buffer` is null or this is 0
 */
int read_system_cmd(const char* command, char* buffer, size_t size);

#endif
